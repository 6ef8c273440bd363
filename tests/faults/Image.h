#pragma once

#include <cstddef>
#include <string>

// Images of the trials. All of them begin at kImageStart.
constexpr unsigned kImageStart = 0x90040000;

// Bytes that tell where they belong, so that a misplaced one shows.
std::string Pattern(std::size_t size, unsigned seed);

// Bytes as a parameter file has them: with runs of every length of code, and the escape byte.
std::string Parameters(std::size_t size);

// The bytes in records of `perRecord`, which end at each multiple of 0x1000, each 64 KiB behind a
// base record, with CR LF line ends.
std::string HexOf(const std::string& bytes, std::size_t perRecord);

// The same bytes in the compressed form.
std::string PackedOf(const std::string& bytes);

// Firmware with the version 1.2 in it: few rows, and yet four blocks, one of which ends on a
// 64 KiB boundary.
struct UpdateImage {
    std::string hex;
    std::string flash;  // all of the two pages that it is written to
};
UpdateImage MakeUpdateImage();
