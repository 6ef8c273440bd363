#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Difference.h"
#include "HexCheck.h"

// An image's address space, for a look: one row per 64 KiB that has data, one character per KiB.
// Its legend explains them.
struct PictureRow {
    std::uint32_t address;
    std::string cells;
    std::string gap;                   // in words, between the row before and this one; or empty
    std::vector<std::uint32_t> sizes;  // bytes of data in each; of a comparison, of both images
};

// What a cell shows. The colours differ in brightness as well, for a printer without colours; those
// for a dark page are the second ones.
struct CellKind {
    char cell;
    bool isLettered;  // the character stands in the cell, too
    const char* text;
    const char* onLight;
    const char* onDark;
};

const CellKind& KindOf(char cell);

struct Picture {
    // As many as the flash has. A file that has data elsewhere, too, may have more.
    static constexpr std::size_t kMostRows = 256;

    std::vector<PictureRow> rows;
    bool isCut = false;     // there are more
    std::string_view used;  // the cells that such a picture may have, in the order of its legend
};

Picture DrawImage(std::string_view hexText, const HexReport& report);

// Of two images together: what differs, and what only one has.
Picture DrawComparison(std::string_view left, std::string_view right, const Comparison& comparison);

// The rows as text, with the addresses before them and a legend.
std::string PictureText(const Picture& picture);

// The same as an SVG document, with `title` above it.
std::string PictureSvg(const Picture& picture, std::string_view title);
