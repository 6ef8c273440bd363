#include "Difference.h"

#include "Hexadecimal.h"
#include "Printable.h"
#include "Text.h"

namespace {

char TextOf(std::int16_t byte)
{
    if (byte == Image::kNoData)
        return ' ';
    return IsPrintable(static_cast<unsigned char>(byte)) ? static_cast<char>(byte) : '.';
}

void Add(Comparison& comparison, std::uint32_t at, Side side)
{
    auto& differences = comparison.differences;
    if (differences.empty() || at - differences.back().last > Comparison::kRowSize)
        differences.push_back({at, at, 0});
    differences.back().last = at;
    ++differences.back().bytes;

    auto& rows = comparison.rows;
    const std::uint32_t row = at - at % Comparison::kRowSize;
    if ((rows.empty() || rows.back() != row) && rows.size() < Comparison::kMostRows)
        rows.push_back(row);

    const auto [cell, isNew] = comparison.cells.try_emplace(at - at % Comparison::kCellSize, side);
    if (!isNew && cell->second != side)
        cell->second = Side::Both;
}

}  // namespace

Comparison Compare(std::string_view left, std::string_view right)
{
    Comparison comparison;
    ByteReader a(left);
    ByteReader b(right);
    bool hasA = a.Next();
    bool hasB = b.Next();
    while (hasA || hasB) {
        const bool takeA = hasA && (!hasB || a.Address() <= b.Address());
        const bool takeB = hasB && (!hasA || b.Address() <= a.Address());
        if (!takeB)
            Add(comparison, a.Address(), Side::Left);
        else if (!takeA)
            Add(comparison, b.Address(), Side::Right);
        else if (a.Value() != b.Value())
            Add(comparison, a.Address(), Side::Both);
        hasA = takeA ? a.Next() : hasA;
        hasB = takeB ? b.Next() : hasB;
    }
    return comparison;
}

std::string RowText(const Image& image, std::uint32_t row)
{
    std::string hex;
    std::string text;
    for (std::uint32_t i = 0; i < Comparison::kRowSize; ++i) {
        const std::int16_t byte = image.At(row + i);
        hex += byte == Image::kNoData ? " --" : " " + TwoDigits(static_cast<unsigned char>(byte));
        text += TextOf(byte);
    }
    return hex + "  |" + text + "|";
}
