#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// How an address is shown.
inline std::string EightDigits(std::uint32_t address)
{
    char text[sizeof("01234567")];
    std::snprintf(text, sizeof(text), "%08X", static_cast<unsigned>(address));
    return text;
}

// How a byte is shown.
inline std::string TwoDigits(unsigned char byte)
{
    char text[sizeof("01")];
    std::snprintf(text, sizeof(text), "%02X", static_cast<unsigned>(byte));
    return text;
}
