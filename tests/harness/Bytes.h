#pragma once

#include <string>

// The bytes of a text such as "E2 E0 E1 06". Throws on anything but pairs of hexadecimal digits.
std::string Bytes(const std::string& hex);

// The other way round, for messages that a reader can compare.
std::string ToHex(const std::string& bytes);
