#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Image.h"

// Addresses that differ, less than a row apart.
struct Difference {
    std::uint32_t first;
    std::uint32_t last;
    std::uint32_t bytes;  // how many between them differ
};

// Which image has what the other one hasn't.
enum class Side { Left, Right, Both };

// Where two images don't have the same byte, or only one has any.
struct Comparison {
    static constexpr std::uint32_t kRowSize = 16;
    static constexpr std::uint32_t kCellSize = 0x400;
    static constexpr std::size_t kMostRows = 16;

    std::vector<Difference> differences;  // rising
    std::vector<std::uint32_t> rows;      // the starts of the first rows that differ
    std::map<std::uint32_t, Side> cells;  // those that differ, by their starts
};

// Of the text of two Intel HEX files without errors.
Comparison Compare(std::string_view left, std::string_view right);

// A row in hex and as text; "--" where there is no data.
std::string RowText(const Image& image, std::uint32_t row);
