#pragma once

#include "TSString.h"

// Hexadecimal fields and the comparison of answers. The output buffers are the caller's, with as
// much room as each comment states. SHexToUInt and strcompare are for the unit's other programs.

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

// Writes two upper-case digits and no NUL.
void CharToHex(unsigned char value, char* target);

// Reads two characters. Each that isn't "0" to "9" or "A" to "F", lower-case letters included,
// counts as the digit 0 on its own.
unsigned char HexToChar(const char* text);

// The value of the first `length` characters, or of all if `length` is below 1. Either case counts.
// Any other character among them, the end of a shorter text included, makes all of the result
// 0; of more than 8 digits the last 8 count.
unsigned int HexToUInt(const char* text, int length);

// Writes exactly `width` upper-case digits, zero-filled, high digits dropped, and a NUL. Always
// true.
bool UIntToHex(unsigned int value, char* target, int width);

// The same two on strings.
unsigned int SHexToUInt(const TSString& text, int length);
TSString UIntToSHex(unsigned int value, int width);

// True when both texts agree at every index from the first to the last, both included. Looks at
// nothing past the first difference, but doesn't stop at a NUL that both have.
bool strcompare(const char* left, const char* right, int first, int last);
