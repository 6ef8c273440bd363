#include "SumFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "HexFormat.h"

namespace {

constexpr std::uint32_t kPolynomial = 0x04C11DB7;
constexpr std::uint32_t kTopBit = 0x80000000;

// The CRC after one byte more, the highest bit of which comes first.
std::uint32_t Add(std::uint32_t crc, std::size_t byte)
{
    crc ^= static_cast<std::uint32_t>(byte & 0xFFU) << 24U;
    for (int bit = 0; bit < 8; ++bit)
        crc = crc << 1U ^ (crc & kTopBit ? kPolynomial : 0);
    return crc;
}

// The size counts as well, its lowest byte first and without the zeros above its highest.
std::uint32_t CrcOf(std::string_view bytes)
{
    std::uint32_t crc = 0;
    for (const unsigned char byte : bytes)
        crc = Add(crc, byte);
    for (std::size_t size = bytes.size(); size > 0; size >>= 8U)
        crc = Add(crc, size);
    return ~crc;
}

std::string Numbers(std::string_view bytes)
{
    return std::to_string(CrcOf(bytes)) + " " + std::to_string(bytes.size());
}

}  // namespace

std::string SumLine(std::string_view bytes, std::string_view name)
{
    return Numbers(bytes).append(" ").append(name) += kLf;
}

bool SumMatches(std::string_view sumText, std::string_view bytes)
{
    const std::string numbers = Numbers(bytes);
    while (!sumText.empty()) {
        const std::string_view line = FirstLine(sumText);
        const std::string_view rest = line.substr(std::min(line.size(), numbers.size()));
        if (line.substr(0, numbers.size()) == numbers && (rest.empty() || rest[0] == ' '))
            return true;
        sumText.remove_prefix(std::min(sumText.find(kLf), sumText.size() - 1) + 1);
    }
    return false;
}
