#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "OutputFile.h"

// The run-length coding of compressed images: a plain sequence of items, with nothing before or
// after them.
//
//   +-------+            +----+-------+-------+
//   | byte  |            | DD | value | count |
//   +-------+            +----+-------+-------+
//   any but DD           value, count times

// Begins a run item.
inline constexpr unsigned char escape = 0xDD;
inline constexpr std::size_t kRunItemSize = 3;  // bytes

// Writes `length` times `value` in its shortest form: a run item for three and more, and for the
// escape byte however often it comes; nothing for a length of 0. False when a write fails.
bool flush(int output, unsigned char value, unsigned char length);

// Writes the value in groups of 7 bits, the highest first, with the top bit set in every byte but
// the last. 0, or -1 when a write fails. For the unit's other programs: the coding has counts of
// one byte.
int WriteCount(int output, unsigned long value);

// Codes the file at `inputPath`, or turns a coded file back. False when a file doesn't open or the
// input can't all be read (no output is touched then), when a write fails, and when a run item of
// the input is cut off; what was written stays.
bool RL_Compress(const char* inputPath, const char* outputPath);
bool RL_Decompress(const char* inputPath, const char* outputPath);
bool RL_Decompress(const char* inputPath, const char* outputPath, AtPath old);

// The same in memory. No result when a run item is cut off, or when there would be more than `most`
// bytes: 3 of a file on a medium can stand for 255.
std::string RunLengthCode(std::string_view bytes);
std::optional<std::string> RunLengthExpand(std::string_view coded, std::size_t most);
