#pragma once

#include <cstdint>
#include <string>

#include "Hex.h"
#include "HexFormat.h"

// How an address is shown.
inline std::string EightDigits(std::uint32_t address)
{
    return UIntToSHex(address, kAddressDigits).c_str();
}

// How a byte is shown.
inline std::string TwoDigits(unsigned char byte)
{
    return UIntToSHex(byte, 2).c_str();
}
