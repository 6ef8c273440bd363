#pragma once

#include <string>
#include <string_view>

#include "Difference.h"
#include "ImageFile.h"

// What the tool reports about images, as text or as the lines of `--json`. `name` is that of the
// file as the user has given it. With `all`, long lists are not cut.

std::string FindingsText(std::string_view name, const HexReport& report, bool all);

// The number of findings, version, ranges, sizes and the picture.
std::string SummaryText(std::string_view name, const ImageFile& file, bool all);

std::string CheckJson(std::string_view name, const ImageFile& file, bool all);

// The ranges that differ, then the first rows that do.
std::string ComparisonText(const Comparison& comparison, const ImageFile& left,
                           const ImageFile& right);

std::string ComparisonJson(const Comparison& comparison);
