#include "Image.h"

#include <algorithm>

#include "HexFormat.h"

namespace {

constexpr std::uint32_t kOffsetMask = 0xFFFF;

}  // namespace

bool ByteReader::Next()
{
    if (count > 0 && ++index < count)
        return true;
    while (NextRecord()) {
        index = 0;
        if (count > 0)
            return true;
    }
    return false;
}

// Without errors, what is no record are the blank lines that may follow the end record.
bool ByteReader::NextRecord()
{
    count = 0;
    const std::size_t end = rest.find(kLf);
    if (end == std::string_view::npos)
        return false;
    record = HexRecord(FirstLine(rest.substr(0, end)));
    rest.remove_prefix(end + 1);
    if (!record.IsComplete())
        return true;
    if (record.Type() == HexRecord::kUpperAddress)
        base = record.UpperAddress();
    else if (record.Type() == HexRecord::kData)
        count = record.Count();
    return true;
}

// Counted first: a vector that grows takes up to three times the memory of what is in it.
Image::Image(std::string_view hexText)
{
    std::size_t count = 0;
    for (ByteReader reader(hexText); reader.Next();)
        ++count;
    bytes.reserve(count);
    for (ByteReader reader(hexText); reader.Next();)
        Put(reader.Address(), reader.Value());
}

std::int16_t Image::At(std::uint32_t address) const
{
    const auto after = std::upper_bound(
        pages.begin(), pages.end(), address,
        [](std::uint32_t wanted, const Page& page) { return wanted < page.start; });
    if (after == pages.begin() || address - after[-1].start > kOffsetMask)
        return kNoData;
    const std::uint32_t offset = address & kOffsetMask;
    const Byte* const first = bytes.data() + after[-1].first;
    const Byte* const end = bytes.data() + (after == pages.end() ? bytes.size() : after->first);
    const Byte* const found =
        std::lower_bound(first, end, offset, [](const Byte& byte, std::uint32_t wanted) {
            return byte.offset < wanted;
        });
    return found != end && found->offset == offset ? found->value : kNoData;
}

void Image::Put(std::uint32_t address, unsigned char value)
{
    const std::uint32_t start = address & ~kOffsetMask;
    const auto offset = static_cast<std::uint16_t>(address & kOffsetMask);
    const bool isNewPage = pages.empty() || start > pages.back().start;
    if (isNewPage)
        pages.push_back({start, static_cast<std::uint32_t>(bytes.size())});
    else if (start < pages.back().start || offset <= bytes.back().offset)
        return;
    bytes.push_back({offset, value});
}
