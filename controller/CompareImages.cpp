#include <cstdio>

#include "Command.h"
#include "Difference.h"
#include "Event.h"
#include "Hexadecimal.h"
#include "LoadImage.h"
#include "NewFile.h"
#include "Picture.h"
#include "Printable.h"

namespace {

void PrintPlain(const Comparison& comparison, const ImageFile& left, const ImageFile& right)
{
    for (const Difference& each : comparison.differences)
        std::printf("%s to %s: %s %s\n", EightDigits(each.first).c_str(),
                    EightDigits(each.last).c_str(), Counted(each.bytes, "byte").c_str(),
                    each.bytes == 1 ? "differs" : "differ");
    if (comparison.rows.empty())
        return;
    const Image a(left.hexText);
    const Image b(right.hexText);
    for (const std::uint32_t row : comparison.rows)
        std::printf("%s A%s\n         B%s\n", EightDigits(row).c_str(), RowText(a, row).c_str(),
                    RowText(b, row).c_str());
}

void PrintAsJson(const Comparison& comparison)
{
    for (const Difference& each : comparison.differences) {
        Event event("difference");
        event.AddText("first", EightDigits(each.first));
        event.AddText("last", EightDigits(each.last));
        event.AddNumber("bytes", each.bytes);
        event.Print();
    }
}

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
        PrintAsJson(comparison);
    else if (!invocation.quiet)
        PrintPlain(comparison, left, right);
    if (!invocation.svg.empty()) {
        Outcome drawn = DrawSvg(invocation, comparison, left, right);
        if (!drawn.IsSuccess())
            return drawn;
    }
    return comparison.differences.empty() ? Status::Success : Status::Failed;
}
