#include "Hex.h"

#include <algorithm>
#include <string>

namespace {

constexpr int kRadix = 16;
constexpr unsigned kCharacters = 256;
constexpr signed char kNoDigit = -1;

// The value of each character as a digit. A look-up, since a branch on letter or digit is
// mispredicted half of the time.
struct DigitTable {
    constexpr DigitTable(bool lowerCase, signed char other) : value()
    {
        for (signed char& each : value)
            each = other;
        for (signed char digit = 0; digit < kRadix; ++digit) {
            const unsigned char character = kHexDigits[digit];
            value[character] = digit;
            if (lowerCase && digit >= 10)
                value[character + ('a' - 'A')] = digit;
        }
    }
    constexpr int operator[](unsigned char character) const { return value[character]; }

    signed char value[kCharacters];  // 0 to 15; of a character that is no digit, `other`
};

// Two tables: records of the piano's files are in upper case, and a lower-case letter in one is
// damage, while the fields of answers and of the files of other tools are in either. A bad digit of
// a record counts as 0 and doesn't spoil the other one, unlike in a field.
constexpr DigitTable kUpperDigits(false, 0);
constexpr DigitTable kAnyDigits(true, kNoDigit);

}  // namespace

void CharToHex(unsigned char value, char* target)
{
    target[0] = kHexDigits[value >> 4];
    target[1] = kHexDigits[value & 15];
}

unsigned char HexToChar(const char* text)
{
    return static_cast<unsigned char>(kUpperDigits[text[0]] * kRadix + kUpperDigits[text[1]]);
}

unsigned int HexToUInt(const char* text, int length)
{
    unsigned int value = 0;
    // The NUL is no digit, so a text shorter than its field ends the loop as well.
    for (int index = 0; length < 1 ? text[index] != '\0' : index < length; ++index) {
        const int digit = kAnyDigits[text[index]];
        if (digit == kNoDigit)
            return 0;
        // Of a text that is too long the first digits leave the value at its top.
        value = value << 4U | digit;
    }
    return value;
}

bool UIntToHex(unsigned int value, char* target, int width)
{
    const int digits = std::max(width, 0);
    target[digits] = '\0';
    // From the right, so that what doesn't fit is lost on the left.
    for (int place = digits - 1; place >= 0; --place) {
        target[place] = kHexDigits[value & 15];
        value >>= 4;
    }
    return true;
}

unsigned int SHexToUInt(const TSString& text, int length)
{
    return HexToUInt(text.c_str(), length);
}

TSString UIntToSHex(unsigned int value, int width)
{
    // A string of so many bytes has room for the NUL as well.
    std::string digits(std::max(width, 0), '\0');
    UIntToHex(value, digits.data(), width);
    return TSString(digits.c_str());
}

// Byte by byte up to the first difference: a text may end there, and its buffer with it.
bool strcompare(const char* left, const char* right, int first, int last)
{
    for (int index = first; index <= last; ++index) {
        if (left[index] != right[index])
            return false;
    }
    return true;
}
