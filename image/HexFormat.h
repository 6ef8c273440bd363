#pragma once

#include <cstdint>
#include <string_view>

// What the readers of Intel HEX files have in common. HexRecord.h shows a record.

constexpr char kCr = '\r';
constexpr char kLf = '\n';
constexpr std::int32_t kLongestLine = 80;  // bytes, the line end included

// The bits of an address, which some interfaces pass in a long, of 32 or 64 bits.
constexpr unsigned long kAddressMask = 0xFFFFFFFF;

constexpr int kAddressDigits = 8;  // of an address in a text, hexadecimal

// Where the CSP's flash is, and its size in bytes.
constexpr std::uint32_t kFlashStart = 0x90000000;
constexpr std::uint32_t kFlashSize = 0x1000000;

// The part of it that has the parameters, all of which a read-back covers, in bytes. The end is the
// address that follows its last byte.
constexpr std::uint32_t kParameterStart = 0x90040000;
constexpr std::uint32_t kParameterEnd = 0x900A0000;
constexpr std::uint32_t kParameterSize = kParameterEnd - kParameterStart;

constexpr std::uint32_t kVersionAddress = 0x90040400;
constexpr int kWriteBlock = 0x2000;  // bytes of flash between two answers of the CSP

// What precedes the first CR or LF of a text.
inline std::string_view FirstLine(std::string_view text)
{
    const std::string_view line = text.substr(0, text.find(kLf));
    return line.substr(0, line.find(kCr));
}
