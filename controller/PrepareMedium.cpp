#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

#include "Command.h"
#include "Event.h"
#include "LoadImage.h"
#include "Medium.h"
#include "Printable.h"
#include "SavedImage.h"

namespace {

bool IsDirectory(const std::string& path)
{
    struct stat state = {};
    return stat(path.c_str(), &state) == 0 && S_ISDIR(state.st_mode);
}

void Report(const Invocation& invocation, const std::string& target, const ImageFile& image)
{
    const std::string& version = image.report.version;
    if (invocation.json) {
        Event event("prepared");
        event.AddText("file", target);
        event.AddText("version", version);
        event.AddNumber("bytes", image.report.bytes);
        PrintLines(event.Line());
        return;
    }
    std::printf("%s: version %s, %s; written, flushed, read again and compared\n"
                "Next: unmount the medium, insert it into the unit, and run\n"
                "  diagctl --host UNIT upgrade%s\n",
                Readable(target).c_str(), version.empty() ? "none" : Readable(version).c_str(),
                Counted(image.report.bytes, "byte").c_str(),
                version.empty() ? "" : (" --expect \"" + Readable(version) + "\"").c_str());
}

}  // namespace

Outcome PrepareMedium(const Invocation& invocation)
{
    const std::string& source = invocation.arguments[0];
    const std::string directory = invocation.arguments[1] + "/";
    if (!IsDirectory(directory))
        return {Status::Usage, invocation.arguments[1] + ": is not a directory"};
    ImageFile image;
    if (Outcome loaded = LoadClean(source, invocation, image); !loaded.IsSuccess())
        return loaded;
    const MediumFile file = MakeMediumFile(image);
    const std::string plain = directory + MediumFile::kPlainName;
    if (file.form == ImageForm::Rlg && access(plain.c_str(), F_OK) == 0)
        return {Status::Failed, plain + " is there, and the unit would take it instead; delete it"};
    const std::string target = directory + file.Name();
    if (Outcome saved = SaveImage(target, file.form, file.bytes); !saved.IsSuccess())
        return saved;
    Report(invocation, target, image);
    return {};
}
