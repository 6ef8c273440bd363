#pragma once

#include <string_view>

// Decimal digits, written into a caller's buffer.

// Room for every 32-bit value in decimal: a sign, ten digits and a NUL.
constexpr int kIntTextSize = 12;

// Writes exactly `width` digits, zero-filled on the left, and a NUL: digits that don't fit are
// dropped from the left, and a width of 0 or less makes an empty text. Always true.
bool UIntToStr(unsigned int value, char* target, int width);

// Writes the digits of the value without its sign and without leading zeros, and a NUL. At most
// ten digits, the lowest ones. Returns the number of digits.
int UIntToStr(long long value, char* target);

// As above, with a leading "-" for a negative value. Returns the number of characters; with the NUL
// they never need more than kIntTextSize bytes.
int IntToStr(long long value, char* target);

// True also for an empty text.
bool IsAllDigits(std::string_view text);
