#include <iterator>

#include "Command.h"
#include "Difference.h"
#include "Listing.h"
#include "LoadImage.h"
#include "NewFile.h"
#include "Picture.h"

namespace {

Outcome DrawSvg(const Invocation& invocation, const Comparison& comparison, const ImageFile& left,
                const ImageFile& right)
{
    const std::string title = "A: " + invocation.arguments[0] + "   B: " + invocation.arguments[1];
    const Picture picture = DrawComparison(left.hexText, right.hexText, comparison);
    return WriteNewFile(invocation.svg, PictureSvg(picture, title));
}

}  // namespace

Outcome CompareImages(const Invocation& invocation)
{
    ImageFile files[2];
    for (std::size_t i = 0; i < std::size(files); ++i) {
        Outcome loaded = LoadClean(invocation.arguments[i], invocation, files[i]);
        if (!loaded.IsSuccess())
            return loaded;
    }
    const auto& [left, right] = files;
    const Comparison comparison = Compare(left.hexText, right.hexText);
    if (invocation.json)
        PrintLines(ComparisonJson(comparison));
    else if (!invocation.quiet)
        PrintLines(ComparisonText(comparison, left, right));
    if (!invocation.svg.empty()) {
        Outcome drawn = DrawSvg(invocation, comparison, left, right);
        if (!drawn.IsSuccess())
            return drawn;
    }
    return comparison.differences.empty() ? Status::Success : Status::Failed;
}
