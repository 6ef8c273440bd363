#include "Image.h"

#include <algorithm>
#include <cstdint>

#include "HexText.h"

namespace {

constexpr std::size_t kPage = 0x10000;
constexpr std::size_t kPages = 2;
constexpr std::size_t kStretch = 0x1000;
constexpr std::size_t kRecordSize = 16;
constexpr std::size_t kLongestRun = 255;
constexpr std::size_t kShortestRun = 3;
constexpr char kEscape = '\xDD';
constexpr unsigned kData = 0;
constexpr unsigned kBase = 4;
constexpr char kEndOfFile[] = ":00000001FF\r\n";
constexpr char kBinaryHead[] = "\x04\x90";

std::string BaseRecord(std::size_t page)
{
    const unsigned upper = (kImageStart >> 16U) + static_cast<unsigned>(page);
    return Record(kBase, 0, {static_cast<char>(upper >> 8U), static_cast<char>(upper)}) + "\r\n";
}

std::string RunItem(char value, std::size_t length)
{
    if (value != kEscape && length < kShortestRun)
        return std::string(length, value);
    return {kEscape, value, static_cast<char>(length)};
}

}  // namespace

std::string Pattern(std::size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i >> 8U) * 7 + i * 13 + seed);
    return bytes;
}

std::string Parameters(std::size_t size)
{
    std::string bytes = "ab" + std::string(5, 'c') + std::string(2, kEscape) + "d" + kEscape;
    bytes += Pattern(size - std::min(size, bytes.size()), 3);
    bytes.resize(size);
    return bytes;
}

std::string HexOf(const std::string& bytes, std::size_t perRecord)
{
    std::string text;
    std::size_t size = 0;
    for (std::size_t at = 0; at < bytes.size(); at += size) {
        if (at % kPage == 0)
            text += BaseRecord(at / kPage);
        size = std::min(perRecord, kStretch - at % kStretch);
        text += Record(kData, at % kPage, bytes.substr(at, size)) + "\r\n";
    }
    return text + kEndOfFile;
}

std::string PackedOf(const std::string& bytes)
{
    const std::string plain = kBinaryHead + bytes;
    std::string packed;
    for (std::size_t at = 0; at < plain.size();) {
        const std::size_t end = std::min(plain.find_first_not_of(plain[at], at), plain.size());
        const std::size_t length = std::min(end - at, kLongestRun);
        packed += RunItem(plain[at], length);
        at += length;
    }
    return packed;
}

UpdateImage MakeUpdateImage()
{
    constexpr std::size_t kPlaces[] = {0x0000, 0x0400,  0x1FF0,  0x3FF0,
                                       0xFFF0, 0x10000, 0x11FF0, 0x12000};
    constexpr std::size_t kVersionAt = 0x0400;
    UpdateImage firmware{"", std::string(kPages * kPage, '\xFF')};
    for (const std::size_t place : kPlaces) {
        std::string bytes = Pattern(kRecordSize, static_cast<unsigned>(firmware.hex.size()));
        if (place == kVersionAt)
            bytes.replace(0, 4, "1.2\0", 4);
        if (place % kPage == 0)
            firmware.hex += BaseRecord(place / kPage);
        firmware.hex += Record(kData, place % kPage, bytes) + "\r\n";
        firmware.flash.replace(place, bytes.size(), bytes);
    }
    firmware.hex += kEndOfFile;
    return firmware;
}
