#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "HexCheck.h"

// What is refused before it is looked into, and why.
inline constexpr std::size_t kLargestInput = 0x10000000;  // bytes
inline constexpr char kTooLarge[] = "is larger than any image";
inline constexpr char kNoForm[] = "neither .hex, .bin nor .rlg";

// The forms of an image, known by the extension of the file's name.
enum class ImageForm { Hex, Bin, Rlg };

// Nothing for any other extension. Either case counts.
std::optional<ImageForm> FormOf(std::string_view name);

// The name or path without the extension of its form, and with another one.
std::string WithExtension(std::string_view name, std::string_view extension);

// What the file with the line of `cksum` next to a compressed image has shown.
enum class Sum { Missing, Matches, Differs };

// A file as the unit sees it: a .bin or .rlg file in the Intel HEX form that the unit makes of it.
struct ImageFile {
    ImageForm form = ImageForm::Hex;
    Sum sum = Sum::Missing;
    std::string hexText;
    HexReport report;  // without line numbers for a file that has no lines
};

// What is wrong with the content is in the report. `sumText` is the content of the file with the
// checksum, where there is one; `outsideFlash` is as in CheckHex.
ImageFile ParseImage(ImageForm form, std::string bytes, const std::optional<std::string>& sumText,
                     Severity outsideFlash);

// The same of a .bin or .rlg file without a checksum.
ImageFile ParseBinary(ImageForm form, std::string_view bytes, Severity outsideFlash);

// "error" or "warning".
const char* NameOf(Severity severity);

// "file.hex:12: error: ...", with the line where there is one.
std::string Describe(std::string_view name, const Finding& finding);

// The first error, and how many there are; empty without any.
std::string DescribeErrors(std::string_view name, const HexReport& report);
