#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

// How many descriptors the process has open.
inline std::ptrdiff_t OpenDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}
