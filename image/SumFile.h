#pragma once

#include <string>
#include <string_view>

// The checksum next to a compressed image, which has none of its own: the line that the standard
// command `cksum NAME` prints, so that a technician can make one anywhere.
//
//    3015617425 65570 csp_prog.rlg
//    CRC        size  name

inline constexpr char kSumExtension[] = ".sum";  // replaces the image's extension

// With its line end.
std::string SumLine(std::string_view bytes, std::string_view name);

// True when a line of `sumText` has the CRC and the size of the bytes. A name may follow them, any
// or none, and CR LF, LF or nothing may end the line.
bool SumMatches(std::string_view sumText, std::string_view bytes);
