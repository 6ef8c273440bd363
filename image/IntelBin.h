#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OutputFile.h"

// An Intel HEX file and its binary form, which keeps the upper address and then only the data:
//
//    0            1            2 ..
//   +------------+------------+-------------------------------+
//   | upper      | upper      | data of all data records, in  |
//   | address low| address hi | the order of the file         |
//   +------------+------------+-------------------------------+
//
// The form is made for one block without gaps that begins on a 64 KiB boundary. Data that begins
// elsewhere moves to the boundary, and gaps close up.

inline constexpr unsigned kBinaryHeadSize = 2;  // bytes of the upper address

// The start of the first record. Another count or address is refused even if the type is 04.
inline constexpr std::string_view kUpperAddressHead = ":02000004";

// Converts the hex file at `hexPath`, which must begin with an upper address record. Digits of
// either case count, a bad or missing one makes its field 0, checksums aren't read. False also when
// a file doesn't open or a write fails; what was written stays.
bool Intel2Bin(const char* hexPath, const char* binaryPath);

// Writes records of 32 data bytes with CR LF line ends, each 64 KiB after an upper address record,
// so without any data the address is lost. False as above, and when a read fails. A file too short
// for an upper address doesn't touch the output.
bool Bin2Intel(const char* binaryPath, const char* hexPath);
bool Bin2Intel(const char* binaryPath, const char* hexPath, AtPath old);

// The same in memory; no result where those return false.
std::optional<std::string> BinaryFromHex(std::string_view hexText);
std::optional<std::string> HexFromBinary(std::string_view binary);
