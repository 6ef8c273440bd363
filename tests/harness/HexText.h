#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

// The bytes of a text such as "E2 E0 E1 06".
inline std::string Bytes(const std::string& hex)
{
    std::istringstream words(hex);
    std::string bytes;
    for (unsigned byte = 0; words >> std::hex >> byte;)
        bytes += static_cast<char>(byte);
    return bytes;
}

// The reverse, for messages that a reader can compare.
inline std::string ToHex(const std::string& bytes, const char* separator = " ")
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += hex.empty() ? "" : separator;
        hex += {kDigits[value / 16], kDigits[value % 16]};
    }
    return hex;
}

// One Intel HEX record without a line end.
inline std::string Record(unsigned type, std::size_t address, const std::string& data)
{
    std::string bytes{static_cast<char>(data.size()), static_cast<char>(address >> 8U),
                      static_cast<char>(address), static_cast<char>(type)};
    bytes += data;
    unsigned char sum = 0;
    for (const char c : bytes)
        sum = static_cast<unsigned char>(sum + c);
    return ":" + ToHex(bytes + static_cast<char>(-sum), "");
}

// The record that sets the upper half of the address for 64 KiB of an image from 0x90040000 on.
inline std::string UpperRecord(std::size_t at)
{
    return Record(4, 0, {'\x90', static_cast<char>(4 + (at >> 16U))});
}

// An image from 0x90040000 on as a hex file. Records end where a block of the CSP does.
inline std::string HexText(const std::string& data, std::size_t perRecord, const char* lineEnd)
{
    constexpr std::size_t kBlock = 0x1000;
    std::string text;
    for (std::size_t at = 0, size = 0; at < data.size(); at += size) {
        if (at % 0x10000 == 0)
            text += UpperRecord(at) + lineEnd;
        size = std::min(perRecord, kBlock - at % kBlock);
        text += Record(0, at % 0x10000, data.substr(at, size)) + lineEnd;
    }
    return text + ":00000001FF" + lineEnd;
}

// The same in the compressed form, all of it in runs, which are full but for the last of a byte.
inline std::string PackedText(const std::string& data)
{
    constexpr std::size_t kLongest = 255;
    std::string packed = "\x04\x90";
    for (std::size_t at = 0, run = 0; at < data.size(); at += run) {
        for (run = 1; run < kLongest && at + run < data.size() && data[at + run] == data[at];)
            ++run;
        packed += {'\xDD', data[at], static_cast<char>(run)};
    }
    return packed;
}

// Bytes without a pattern that a misplaced record could repeat, interrupted by erased stretches,
// and a version where the unit looks for it, unless that is empty.
inline std::string Firmware(std::size_t size, const std::string& version = "")
{
    constexpr std::size_t kVersionAt = 0x400;
    std::string bytes(size, '\xFF');
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < size; ++i) {
        state = state * 1664525U + 1013904223U;
        if (i % 1024 < 900)
            bytes[i] = static_cast<char>(state >> 24U);
    }
    if (!version.empty())
        bytes.replace(kVersionAt, version.size() + 1, version.c_str(), version.size() + 1);
    return bytes;
}

// A small firmware file with the version.
inline std::string SmallFile(const std::string& version)
{
    return HexText(Firmware(0x800, version), 32, "\r\n");
}
