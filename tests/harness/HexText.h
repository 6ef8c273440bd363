#pragma once

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>

// The bytes of a text such as "E2 E0 E1 06". Throws on anything but pairs of hexadecimal digits.
inline std::string Bytes(const std::string& hex)
{
    std::istringstream words(hex);
    std::string bytes;
    for (std::string word; words >> word;) {
        std::size_t used = 0;
        bytes += static_cast<char>(std::stoi(word, &used, 16));
        if (used != 2 || word.size() != 2)
            throw std::invalid_argument("no byte: " + word);
    }
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
        hex += kDigits[value / 16];
        hex += kDigits[value % 16];
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

// An image from 0x90040000 on as a hex file.
inline std::string HexText(const std::string& data, std::size_t perRecord, const char* lineEnd)
{
    std::string text;
    for (std::size_t at = 0; at < data.size(); at += perRecord) {
        if (at % 0x10000 == 0)
            text += Record(4, 0, {'\x90', static_cast<char>(4 + (at >> 16U))}) + lineEnd;
        text += Record(0, at % 0x10000, data.substr(at, perRecord)) + lineEnd;
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

// Bytes without a pattern that a misplaced record could repeat, interrupted by erased stretches.
inline std::string Firmware(std::size_t size)
{
    std::string bytes(size, '\xFF');
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < size; ++i) {
        state = state * 1664525U + 1013904223U;
        if (i % 1024 < 900)
            bytes[i] = static_cast<char>(state >> 24U);
    }
    return bytes;
}
