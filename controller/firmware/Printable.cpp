#include "Printable.h"

#include "Hexadecimal.h"
#include "Text.h"

std::string Readable(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        if (!IsPrintable(byte))
            text += "\\x" + TwoDigits(byte);
        else if (byte == '\\')
            text += "\\\\";
        else
            text += byte;
    }
    return text;
}

std::string Grouped(std::size_t number)
{
    constexpr std::size_t kGroup = 3;  // digits
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > kGroup;)
        digits.insert(at -= kGroup, ",");
    return digits;
}

std::string Counted(std::size_t count, const char* noun)
{
    return Grouped(count) + " " + noun + (count == 1 ? "" : "s");
}
