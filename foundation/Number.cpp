#include "Number.h"

#include <algorithm>

namespace {

constexpr unsigned long long kTenDigits = 10'000'000'000;

void FillDigits(unsigned long long value, char* target, int width)
{
    target[width] = '\0';
    for (int place = width - 1; place >= 0; --place) {
        target[place] = static_cast<char>('0' + value % 10);
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
    const auto bits = static_cast<unsigned long long>(value);
    const unsigned long long magnitude = (value < 0 ? 0 - bits : bits) % kTenDigits;
    int width = 1;
    for (unsigned long long rest = magnitude / 10; rest != 0; rest /= 10)
        ++width;
    FillDigits(magnitude, target, width);
    return width;
}

int IntToStr(long long value, char* target)
{
    if (value >= 0)
        return UIntToStr(value, target);
    target[0] = '-';
    return 1 + UIntToStr(value, target + 1);
}
