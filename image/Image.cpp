#include "Image.h"

#include <algorithm>

#include "HexFormat.h"
#include "HexRecord.h"

namespace {

constexpr std::uint32_t kOffsetMask = 0xFFFF;

}  // namespace

void ForEachByte(std::string_view hexText,
                 const std::function<void(std::uint32_t address, unsigned char byte)>& take)
{
    std::uint32_t base = 0;
    for (std::size_t end = 0; (end = hexText.find(kLf)) != std::string_view::npos;
         hexText.remove_prefix(end + 1)) {
        const HexRecord record(FirstLine(hexText.substr(0, end)));
        // Without errors these are the blank lines that may follow the end record.
        if (!record.IsComplete())
            continue;
        if (record.Type() == HexRecord::kUpperAddress)
            base = record.UpperAddress();
        if (record.Type() != HexRecord::kData)
            continue;
        for (std::uint32_t i = 0; i < record.Count(); ++i)
            take(record.Address(base) + i, record.Data(i));
    }
}

// Counted first: a vector that grows takes up to three times the memory of what is in it.
Image::Image(std::string_view hexText)
{
    std::size_t count = 0;
    ForEachByte(hexText, [&](std::uint32_t, unsigned char) { ++count; });
    bytes.reserve(count);
    ForEachByte(hexText,
                [this](std::uint32_t address, unsigned char value) { Put(address, value); });
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
