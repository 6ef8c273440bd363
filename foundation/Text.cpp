#include "Text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "DoubleByte.h"
#include "Number.h"

namespace {

constexpr int kUpper = 'U';
constexpr int kLower = 'L';
constexpr int kQuoteRoom = 3;  // a quote, its backslash and one byte more
constexpr char kWordEnds[] = " \f\n\r\t\v";
constexpr char kFormatFlags[] = "+-# 0";

// Without a mark the NUL is written over the one that is there.
char* EndAtFirst(const char* marks, char* text)
{
    if (text != nullptr) {
        const std::string_view all(text);
        text[std::min(all.find_first_of(marks), all.size())] = '\0';
    }
    return text;
}

// A byte from 0x80 up is negative in some compilers' char, which isspace must not see.
bool IsSpace(unsigned char byte)
{
    return std::isspace(byte) != 0;
}

bool IsQuote(char byte)
{
    return byte == '\'' || byte == '"';
}

// The ranges of the two bytes of a pair overlap those of single bytes, so a byte alone doesn't show
// what it is: the two below are asked only once its place is known.
bool IsSjisSecond(unsigned char byte)
{
    return byte >= 0x40 && byte <= 0xFC && byte != 0x7F;
}

bool IsSjisSingle(unsigned char byte)
{
    return (byte >= 0x01 && byte <= 0x7F) || (byte >= 0xA1 && byte <= 0xDF);
}

// Anything else would make another conversion of it, with arguments that aren't there, or none.
bool IsFloatFormat(std::string_view format)
{
    const std::size_t dot = format.find('.');
    if (dot == 0 || dot == std::string_view::npos)
        return false;
    const std::string_view width = format.substr(0, dot);
    const std::string_view decimals = format.substr(dot + 1);
    const std::size_t flags = std::min(width.find_first_not_of(kFormatFlags), width.size());
    return IsAllDigits(width.substr(flags)) && IsAllDigits(decimals) && !decimals.empty();
}

}  // namespace

// Either mark may come first, and the text is to end at that one.
char* chop(char* text)
{
    return EndAtFirst("\r\n", text);
}

char* skipspace(char* text)
{
    while (text != nullptr && IsSpace(*text))
        ++text;
    return text;
}

char* uncomment(char* text)
{
    return EndAtFirst("#", text);
}

// strsep and not strtok, which passes over empty words and keeps a state between two calls.
char* car(char** text)
{
    return strsep(text, kWordEnds);
}

char* cdr(char* text)
{
    char* rest = text;  // the caller's own pointer stays
    car(&rest);
    return rest;
}

char* str_up_low(char* source, char* target, int mode)
{
    if (target == nullptr)
        target = source;
    // The locale decides on bytes from 0x80 up, and in the one that the program keeps they stay.
    const std::string_view text(source);
    char* const end = std::transform(text.begin(), text.end(), target, [mode](unsigned char byte) {
        return mode == kUpper ? toupper(byte) : tolower(byte);
    });
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
    const std::size_t room = std::max(size, 1) - 1;
    const std::size_t used = strnlen(target, room);
    // A target that is full, or overfull, stays as it is.
    if (used < room) {
        // Neither text needs a NUL within its room.
        const std::size_t added = strnlen(source, room - used);
        *std::copy_n(source, added, target + used) = '\0';
    }
    return target;
}

int mystr_escquote(const char* source, char* target, int limit)
{
    if (limit < 0)
        return 0;
    int written = 0;
    for (; *source != '\0' && written < limit; ++source) {
        // A quote goes with its backslash or not at all: a backslash alone would escape what the
        // caller appends.
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

// Despite its name, it replaces blanks everywhere, not only on the left.
void trimleft(char* text, int length)
{
    std::replace_if(text, text + std::max(length, 0), IsBlank, '\0');
}

// What follows the number isn't looked at. Of a value that is too large the low bits count, and
// above the range of `long`, those of its largest value.
int StrToInt(const char* text)
{
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

TSString FormatFloat(const TSString& format, float value)
{
    if (!IsFloatFormat(format.c_str()))
        return TSString();
    const TSString conversion = TSString("%") + format + "f";
    const double number = value;
    // Measured first, since a width may be of any size; one over 31 bits makes no text at all.
    const int length = std::snprintf(nullptr, 0, conversion.c_str(), number);
    if (length < 0)
        return TSString();
    std::string buffer(length, '\0');
    std::snprintf(buffer.data(), buffer.size() + 1, conversion.c_str(), number);
    return TSString(buffer.c_str());
}

bool is_SJIS(const TSString& text)
{
    // A first byte needs no test of its own: the scanner takes a byte for one only if it is.
    DoubleByteScanner scanner(IsSjisFirst);
    for (const unsigned char byte : std::string_view(text.c_str())) {
        const BytePlace place = scanner.Next(byte);
        if (place == BytePlace::Second && !IsSjisSecond(byte))
            return false;
        if (place == BytePlace::Single && !IsSjisSingle(byte))
            return false;
    }
    return true;
}

TSString DoubleQuoteString(const TSString& source)
{
    const std::string_view text(source.c_str());
    if (text.find_first_of("\t '\",") == std::string_view::npos)
        return source;
    // A quote is doubled, and not escaped: that is how such lists are read.
    std::string quoted = "\"";
    for (const char byte : text) {
        if (byte == '"')
            quoted += '"';
        quoted += byte;
    }
    quoted += '"';
    return TSString(quoted.c_str());
}
