#pragma once

#include <cstddef>
#include <string>

#include "HexText.h"

// The bytes that a text such as "04 90 DD" names.
inline std::string Bytes(const std::string& digits)
{
    std::string bytes;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 3)
        bytes += static_cast<char>(std::stoul(digits.substr(at, 2), nullptr, 16));
    return bytes;
}
