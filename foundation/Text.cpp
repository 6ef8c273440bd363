#include "Text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "DoubleByte.h"

namespace {

constexpr int kUpper = 'U';
constexpr int kLower = 'L';
constexpr int kQuoteRoom = 3;  // a quote, its backslash and one byte more
constexpr unsigned char kLastBlank = 32;
constexpr char kWordEnds[] = " \f\n\r\t\v";

char* EndAtFirst(const char* marks, char* text)
{
    if (text != nullptr)
        text[std::strcspn(text, marks)] = '\0';
    return text;
}

bool IsQuote(char byte)
{
    return byte == '\'' || byte == '"';
}

bool IsSjisSecond(unsigned char byte)
{
    return byte >= 0x40 && byte <= 0xFC && byte != 0x7F;
}

bool IsSjisSingle(unsigned char byte)
{
    return (byte >= 0x01 && byte <= 0x7F) || (byte >= 0xA1 && byte <= 0xDF);
}

// Anything else would make another conversion of it, with arguments that aren't there, or none.
bool IsFloatFormat(const TSString& format)
{
    constexpr char kDigits[] = "0123456789";
    const char* at = format.c_str();
    if (*at == '.')
        return false;
    at += std::strspn(at, "+-# 0");
    at += std::strspn(at, kDigits);
    if (*at != '.')
        return false;
    ++at;
    const std::size_t decimals = std::strspn(at, kDigits);
    return decimals > 0 && at[decimals] == '\0';
}

}  // namespace

char* chop(char* text)
{
    return EndAtFirst("\r\n", text);
}

char* skipspace(char* text)
{
    while (text != nullptr && std::isspace(static_cast<unsigned char>(*text)) != 0)
        ++text;
    return text;
}

char* uncomment(char* text)
{
    return EndAtFirst("#", text);
}

char* car(char** text)
{
    return strsep(text, kWordEnds);
}

char* cdr(char* text)
{
    char* rest = text;
    car(&rest);
    return rest;
}

char* str_up_low(char* source, char* target, int mode)
{
    if (target == nullptr)
        target = source;
    char* end = target;
    for (; *source != '\0'; ++source, ++end) {
        const auto byte = static_cast<unsigned char>(*source);
        *end = static_cast<char>(mode == kUpper ? std::toupper(byte) : std::tolower(byte));
    }
    *end = '\0';
    return target;
}

char* mystrtoupper(char* source, char* target)
{
    return str_up_low(source, target, kUpper);
}

char* mystrtolower(char* source, char* target)
{
    return str_up_low(source, target, kLower);
}

char* mystrcat(char* target, const char* source, int size)
{
    const std::size_t room = size < 1 ? 0 : static_cast<std::size_t>(size) - 1;
    const std::size_t used = strnlen(target, room);
    if (used < room) {
        const std::size_t added = strnlen(source, room - used);
        std::memcpy(target + used, source, added);
        target[used + added] = '\0';
    }
    return target;
}

int mystr_escquote(const char* source, char* target, int limit)
{
    if (limit < 0)
        return 0;
    int written = 0;
    for (; *source != '\0' && written < limit; ++source) {
        if (IsQuote(*source)) {
            if (limit - written < kQuoteRoom)
                break;
            target[written++] = '\\';
        }
        target[written++] = *source;
    }
    target[written] = '\0';
    return written;
}

void trimleft(char* text, int length)
{
    for (int index = length - 1; index >= 0; --index) {
        if (static_cast<unsigned char>(text[index]) <= kLastBlank)
            text[index] = '\0';
    }
}

int StrToInt(const char* text)
{
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

TSString FormatFloat(const TSString& format, float value)
{
    if (!IsFloatFormat(format))
        return TSString();
    const TSString conversion = TSString("%") + format + "f";
    const auto number = static_cast<double>(value);
    const int length = std::snprintf(nullptr, 0, conversion.c_str(), number);
    if (length < 0)
        return TSString();
    std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
    std::snprintf(buffer.data(), buffer.size(), conversion.c_str(), number);
    return TSString(buffer.data());
}

bool is_SJIS(const TSString& text)
{
    DoubleByteScanner scanner(IsSjisFirst);
    for (const char* next = text.c_str(); *next != '\0'; ++next) {
        const auto byte = static_cast<unsigned char>(*next);
        const BytePlace place = scanner.Next(*next);
        if (place == BytePlace::Second && !IsSjisSecond(byte))
            return false;
        if (place == BytePlace::Single && !IsSjisSingle(byte))
            return false;
    }
    return true;
}

TSString DoubleQuoteString(const TSString& source)
{
    if (source.c_str()[std::strcspn(source.c_str(), "\t '\",")] == '\0')
        return source;
    std::string quoted = "\"";
    for (const char* byte = source.c_str(); *byte != '\0'; ++byte) {
        if (*byte == '"')
            quoted += '"';
        quoted += *byte;
    }
    quoted += '"';
    return TSString(quoted.c_str());
}
