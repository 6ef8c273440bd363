#pragma once

#include <cstddef>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include "UniqueFd.h"

// Creates or empties the file at `path` for its owner alone. The descriptor, or -1.
inline int CreateOutputFile(const char* path)
{
    constexpr mode_t kOwnerOnly = 0600;
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | kOpenFlags, kOwnerOnly);
}

// One write. A short one means a full disk, and so counts as failed.
inline bool WriteWhole(int descriptor, const void* data, std::size_t size)
{
    return write(descriptor, data, size) == static_cast<ssize_t>(size);
}
