#include "Bytes.h"

#include <cstddef>
#include <sstream>

std::string Bytes(const std::string& hex)
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

std::string ToHex(const std::string& bytes)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += hex.empty() ? "" : " ";
        hex += kDigits[value / 16];
        hex += kDigits[value % 16];
    }
    return hex;
}
