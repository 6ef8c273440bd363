#include <cstdio>
#include <vector>

#include "Command.h"
#include "Difference.h"
#include "Event.h"
#include "Hexadecimal.h"
#include "Image.h"
#include "ImageFile.h"

namespace {

constexpr std::uint32_t kRowSize = 16;
constexpr std::size_t kShownRows = 16;

struct Difference {
    std::uint32_t first;
    std::uint32_t last;
    std::uint32_t bytes;  // how many of them differ
};

// Differences less than a row apart are one.
std::vector<Difference> Joined(const std::vector<std::uint32_t>& addresses)
{
    std::vector<Difference> differences;
    for (const std::uint32_t at : addresses) {
        if (differences.empty() || at - differences.back().last > kRowSize)
            differences.push_back({at, at, 0});
        differences.back().last = at;
        ++differences.back().bytes;
    }
    return differences;
}

// The first rows that have a difference.
std::vector<std::uint32_t> RowsOf(const std::vector<std::uint32_t>& addresses)
{
    std::vector<std::uint32_t> rows;
    for (const std::uint32_t at : addresses) {
        const std::uint32_t row = at - at % kRowSize;
        if (!rows.empty() && rows.back() == row)
            continue;
        if (rows.size() == kShownRows)
            break;
        rows.push_back(row);
    }
    return rows;
}

// The row in hex and as text; "--" where there is no data.
std::string RowText(const Image& image, std::uint32_t row)
{
    std::string hex;
    std::string text;
    for (std::uint32_t i = 0; i < kRowSize; ++i) {
        const std::int16_t byte = image.At(row + i);
        hex += byte == Image::kNoData ? " --" : " " + TwoDigits(static_cast<unsigned char>(byte));
        text += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : byte < 0 ? ' ' : '.';
    }
    return hex + "  |" + text + "|";
}

void PrintPlain(const std::vector<std::uint32_t>& addresses, const Image& left, const Image& right)
{
    for (const Difference& each : Joined(addresses))
        std::printf("%s to %s: %u bytes differ\n", EightDigits(each.first).c_str(),
                    EightDigits(each.last).c_str(), static_cast<unsigned>(each.bytes));
    for (const std::uint32_t row : RowsOf(addresses))
        std::printf("%s A%s\n         B%s\n", EightDigits(row).c_str(), RowText(left, row).c_str(),
                    RowText(right, row).c_str());
}

void PrintAsJson(const std::vector<Difference>& differences)
{
    for (const Difference& each : differences) {
        Event event("difference");
        event.AddText("first", EightDigits(each.first));
        event.AddText("last", EightDigits(each.last));
        event.AddNumber("bytes", each.bytes);
        event.Print();
    }
}

}  // namespace

Outcome CompareImages(const Invocation& invocation)
{
    if (invocation.arguments.size() != 2)
        return WrongUsage("diff takes two files");
    ImageFile files[2];
    for (std::size_t i = 0; i < std::size(files); ++i) {
        if (Outcome loaded = LoadClean(invocation.arguments[i], files[i]);
            loaded.status != Status::Success)
            return loaded;
    }
    const auto& [left, right] = files;
    const std::vector<std::uint32_t> addresses = DifferingAddresses(left.hexText, right.hexText);
    if (invocation.json)
        PrintAsJson(Joined(addresses));
    else if (!invocation.quiet)
        PrintPlain(addresses, Image(left.hexText), Image(right.hexText));
    return addresses.empty() ? Status::Success : Status::Failed;
}
