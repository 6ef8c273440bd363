#include <algorithm>

#include "Command.h"
#include "Listing.h"
#include "LoadImage.h"
#include "NewFile.h"
#include "Picture.h"

namespace {

Outcome CheckFile(const std::string& path, const Invocation& invocation)
{
    ImageFile file;
    if (Outcome loaded = LoadImage(path, invocation, file); !loaded.IsSuccess())
        return loaded;
    PrintLines(invocation.json ? CheckJson(path, file, invocation.all)
                               : FindingsText(path, file.report, invocation.all));
    if (!invocation.json && !invocation.quiet)
        PrintLines(SummaryText(path, file, invocation.all));
    if (!invocation.svg.empty()) {
        const Picture picture = DrawImage(file.hexText, file.report);
        if (Outcome drawn = WriteNewFile(invocation.svg,
                                         PictureSvg(picture, path + "  " + file.report.version));
            !drawn.IsSuccess())
            return drawn;
    }
    return file.report.errors == 0 ? Status::Success : Status::Failed;
}

}  // namespace

Outcome CheckFiles(const Invocation& invocation)
{
    if (!invocation.svg.empty() && invocation.arguments.size() > 1)
        return WrongUsage("--svg takes one file");
    Status worst = Status::Success;
    for (const std::string& path : invocation.arguments) {
        const Outcome checked = CheckFile(path, invocation);
        if (!checked.reason.empty())
            Complain(checked.reason);
        worst = std::max(worst, checked.status);
    }
    return worst;
}
