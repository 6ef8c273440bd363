#include "Image.h"

#include "HexFormat.h"
#include "HexRecord.h"

Image::Image(std::string_view hexText)
{
    std::uint32_t base = 0;
    for (std::size_t end = 0; (end = hexText.find(kLf)) != std::string_view::npos;
         hexText.remove_prefix(end + 1)) {
        const HexRecord record(FirstLine(hexText));
        // Without errors these are the blank lines that may follow the end record.
        if (!record.IsComplete())
            continue;
        if (record.Type() == HexRecord::kUpperAddress)
            base = record.UpperAddress();
        if (record.Type() != HexRecord::kData)
            continue;
        for (std::uint32_t i = 0; i < record.Count(); ++i)
            Put(record.Address(base) + i, record.Data(i));
    }
}

std::int16_t Image::At(std::uint32_t address) const
{
    const std::uint32_t offset = address % kCellSize;
    const auto found = cells.find(address - offset);
    return found == cells.end() ? kNoData : found->second[offset];
}

void Image::Put(std::uint32_t address, unsigned char byte)
{
    const std::uint32_t offset = address % kCellSize;
    // A new cell is all zeros, and 0 is a byte of data.
    const auto [cell, isNew] = cells.try_emplace(address - offset);
    if (isNew)
        cell->second.fill(kNoData);
    cell->second[offset] = byte;
}
