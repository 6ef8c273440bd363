#include <cstdio>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "Command.h"
#include "Conversion.h"
#include "Event.h"
#include "LoadImage.h"
#include "Printable.h"
#include "SavedImage.h"

namespace {

// The names for which the unit looks on a medium, the first of them first.
constexpr char kPlainName[] = "csp_prog.hex";
constexpr char kCompressedName[] = "csp_prog.rlg";

bool IsDirectory(const std::string& path)
{
    struct stat state = {};
    return stat(path.c_str(), &state) == 0 && S_ISDIR(state.st_mode);
}

// Compressed where that is possible, since only that form has a checksum of all its bytes. An
// image with gaps stays as it is.
ImageForm ConvertForMedium(const ImageFile& image, std::string& bytes)
{
    Conversion compressed = Convert(image, ImageForm::Rlg);
    if (!compressed.error.empty()) {
        bytes = image.hexText;
        return ImageForm::Hex;
    }
    bytes = std::move(compressed.bytes);
    return ImageForm::Rlg;
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
    std::string bytes;
    const ImageForm form = ConvertForMedium(image, bytes);
    const std::string plain = directory + kPlainName;
    if (form == ImageForm::Rlg && access(plain.c_str(), F_OK) == 0)
        return {Status::Failed, plain + " is there, and the unit would take it instead; delete it"};
    const std::string target = form == ImageForm::Rlg ? directory + kCompressedName : plain;
    if (Outcome saved = SaveImage(target, form, bytes); !saved.IsSuccess())
        return saved;
    Report(invocation, target, image);
    return {};
}
