#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string_view>

// The bytes of an image by their addresses.
class Image {
public:
    static constexpr std::uint32_t kCellSize = 0x400;  // addresses
    static constexpr std::int16_t kNoData = -1;        // at an address without a byte
    using Cell = std::array<std::int16_t, kCellSize>;

    Image() = default;
    // From the text of an Intel HEX file. What is no complete line with a complete record is left
    // out; checksums aren't tested, and of data for one address the last count.
    explicit Image(std::string_view hexText);

    // The byte there, or kNoData.
    std::int16_t At(std::uint32_t address) const;

    // The cells with data by their first addresses. This and the comparison are for diagctl.
    const std::map<std::uint32_t, Cell>& Cells() const { return cells; }

    bool operator==(const Image& other) const { return cells == other.cells; }

private:
    void Put(std::uint32_t address, unsigned char byte);

    // By the first address, a multiple of kCellSize; a cell has at least one byte.
    std::map<std::uint32_t, Cell> cells;
};
