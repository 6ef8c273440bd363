#pragma once

#include <cstddef>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include "UniqueFd.h"

// Creates the file at `path`, or empties it: what an older one had past the new end must not stay.
// The descriptor, which the caller owns, or -1.
inline int CreateOutputFile(const char* path, mode_t permissions = S_IRUSR | S_IWUSR)
{
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | kOpenFlags, permissions);
}

// One write. A short one lacks bytes, as on a full disk, and so counts as failed.
inline bool WriteWhole(int descriptor, const void* data, std::size_t size)
{
    return write(descriptor, data, size) == static_cast<ssize_t>(size);
}
