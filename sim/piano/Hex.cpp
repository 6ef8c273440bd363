#include "Hex.h"

#include <string_view>

static constexpr std::string_view kDigits = "0123456789ABCDEF";

std::optional<uint32_t> HexDigits(const std::string& text, size_t at, size_t digits)
{
    if (at > text.size() || text.size() - at < digits)
        return std::nullopt;
    uint32_t value = 0;
    for (const char letter : text.substr(at, digits)) {
        const size_t digit = kDigits.find(letter);
        if (digit == std::string_view::npos)
            return std::nullopt;
        value = (value << 4) | static_cast<uint32_t>(digit);
    }
    return value;
}

std::string Hex(uint32_t value, size_t digits)
{
    std::string text(digits, '0');
    for (; digits > 0; value >>= 4)
        text[--digits] = kDigits[value & 0x0FU];
    return text;
}
