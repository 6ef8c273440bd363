#include "Number.h"

#include <algorithm>

namespace {

constexpr char kDigits[] = "0123456789";
constexpr unsigned long long kTenDigits = 10'000'000'000;

// From the right, so that what doesn't fit is lost on the left.
void FillDigits(unsigned long long value, char* target, int width)
{
    target[width] = '\0';
    for (int place = width - 1; place >= 0; --place) {
        target[place] = kDigits[value % 10];
        value /= 10;
    }
}

}  // namespace

bool UIntToStr(unsigned int value, char* target, int width)
{
    FillDigits(value, target, std::max(width, 0));
    return true;
}

int UIntToStr(long long value, char* target)
{
    // The lowest value of all has no positive counterpart of its own type.
    const unsigned long long bits = value;
    const unsigned long long magnitude = (value < 0 ? 0 - bits : bits) % kTenDigits;
    int width = 1;  // a zero has a digit, too
    for (unsigned long long rest = magnitude / 10; rest != 0; rest /= 10)
        ++width;
    FillDigits(magnitude, target, width);
    return width;
}

int IntToStr(long long value, char* target)
{
    if (value >= 0)
        return UIntToStr(value, target);
    // The digits are those of the magnitude, also where that doesn't fit the type.
    target[0] = '-';
    return 1 + UIntToStr(value, target + 1);
}

bool IsAllDigits(std::string_view text)
{
    return text.find_first_not_of(kDigits) == std::string_view::npos;
}
