#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Upper-case hexadecimal digits, as the console and the log have them.

// The value of exactly `digits` digits at `at`.
std::optional<uint32_t> HexDigits(const std::string& text, size_t at, size_t digits);

// The lower bits of the value in so many digits.
std::string Hex(uint32_t value, size_t digits);
