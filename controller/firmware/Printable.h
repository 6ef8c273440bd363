#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The bytes with everything escaped that isn't printable ASCII.
std::string Readable(std::string_view bytes);

// "65,568".
std::string Grouped(std::size_t number);

// "1 error", "2 errors"; "65,568 bytes".
std::string Counted(std::size_t count, const char* noun);
