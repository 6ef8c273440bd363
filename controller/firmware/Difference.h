#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

// The addresses at which two images, given as the text of Intel HEX files without errors, don't
// have the same byte, or only one has any; rising.
std::vector<std::uint32_t> DifferingAddresses(std::string_view left, std::string_view right);
