#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OutputFile.h"

// An Intel HEX file and its compressed form for removable media: the binary form of IntelBin.h in
// the coding of RunLength.h. The binary form is in a file next to the hex file, with the extension
// ".bin", and stays there. A failure of the first step leaves the target as it was.

bool Compress(const char* hexPath, const char* compressedPath);
bool Decompress(const char* compressedPath, const char* hexPath);

// `old` is for both files that it creates; without it they are emptied.
bool Decompress(const char* compressedPath, const char* hexPath, AtPath old);

// The same in memory; no result where those fail, nor for an image that is larger than the flash.
std::optional<std::string> CompressImage(std::string_view hexText);
std::optional<std::string> ExpandImage(std::string_view compressed);
