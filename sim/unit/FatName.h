#pragma once

#include "BoundedText.h"

// Names on the medium's FAT file system: upper and lower case are one name, and some characters are
// refused. Only ASCII letters have a case here.

// Replaces each part of the path after `root` by the existing name that it means.
BoundedText FindFatNames(const BoundedText& root, const char* path);

// True when a file of this name can't be made.
bool HasBadFatName(const char* path);

// FAT's times have steps of two seconds and begin in 1980.
constexpr long long FatTime(long long seconds)
{
    constexpr long long kFirst = 315532800;
    return seconds < kFirst ? kFirst : seconds - seconds % 2;
}
