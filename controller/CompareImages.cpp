#include <cstdio>
#include <set>
#include <vector>

#include "Command.h"
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

// Where the images differ, byte for byte; differences less than a row apart are one.
std::vector<Difference> Compare(const Image& left, const Image& right)
{
    std::set<std::uint32_t> starts;
    for (const Image* image : {&left, &right})
        for (const auto& [address, cell] : image->Cells())
            starts.insert(address);

    std::vector<Difference> differences;
    for (const std::uint32_t start : starts) {
        for (std::uint32_t at = start; at - start < Image::kCellSize; ++at) {
            if (left.At(at) == right.At(at))
                continue;
            if (differences.empty() || at - differences.back().last > kRowSize)
                differences.push_back({at, at, 0});
            differences.back().last = at;
            ++differences.back().bytes;
        }
    }
    return differences;
}

// The first rows that have a difference.
std::vector<std::uint32_t> RowsOf(const std::vector<Difference>& differences, const Image& left,
                                  const Image& right)
{
    std::vector<std::uint32_t> rows;
    for (const Difference& each : differences) {
        for (std::uint32_t at = each.first;; ++at) {
            const std::uint32_t row = at - at % kRowSize;
            if (left.At(at) != right.At(at) && (rows.empty() || rows.back() != row))
                rows.push_back(row);
            if (at == each.last || rows.size() > kShownRows)
                break;
        }
    }
    rows.resize(std::min(rows.size(), kShownRows));
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

void PrintPlain(const std::vector<Difference>& differences, const Image& left, const Image& right)
{
    for (const Difference& each : differences)
        std::printf("%s to %s: %u bytes differ\n", EightDigits(each.first).c_str(),
                    EightDigits(each.last).c_str(), static_cast<unsigned>(each.bytes));
    for (const std::uint32_t row : RowsOf(differences, left, right))
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
    Image images[2];
    for (std::size_t i = 0; i < std::size(images); ++i) {
        ImageFile file;
        if (Outcome loaded = LoadClean(invocation.arguments[i], file);
            loaded.status != Status::Success)
            return loaded;
        images[i] = Image(file.hexText);
    }
    const auto& [left, right] = images;
    const std::vector<Difference> differences = Compare(left, right);
    if (invocation.json)
        PrintAsJson(differences);
    else if (!invocation.quiet)
        PrintPlain(differences, left, right);
    return differences.empty() ? Status::Success : Status::Failed;
}
