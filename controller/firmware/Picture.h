#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "HexCheck.h"

// An image's address space, for a look: one row per 64 KiB that has anything, one character per
// KiB. A blank has no data, "." only erased bytes (FF), and ":", "+" and "#" are the denser the
// more other bytes there are. "V" is where the version text is, "!" where an error is.
struct PictureRow {
    std::uint32_t address;
    std::string cells;
};

std::vector<PictureRow> Draw(std::string_view hexText, const HexReport& report);

// The rows as text, with the addresses before them.
std::string PictureText(const std::vector<PictureRow>& rows);

// The rows as an SVG document, with `title` above them.
std::string PictureSvg(const std::vector<PictureRow>& rows, const std::string& title);
