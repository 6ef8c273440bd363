#pragma once

#include <cstddef>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "UniqueFd.h"

// What becomes of what is at the path of a new file. In a directory where every user may create
// names, a link at the path would lead to another file, which must not be emptied.
enum class AtPath { Emptied, Removed };

// Permission bits, less those of the umask.
constexpr mode_t kOwnersOnly = S_IRUSR | S_IWUSR;
constexpr mode_t kForEverybody = 0666;

// Creates the file at `path`, or empties it: what an older one had past the new end must not stay.
// The descriptor, which the caller owns, or -1.
inline int CreateOutputFile(const char* path, mode_t permissions = kOwnersOnly,
                            AtPath old = AtPath::Emptied)
{
    if (old == AtPath::Removed)
        unlink(path);  // what can't be removed makes the opening fail
    const int how = old == AtPath::Removed ? O_EXCL | O_NOFOLLOW : O_TRUNC;
    return open(path, O_WRONLY | O_CREAT | how | kOpenFlags, permissions);
}

// One write. A short one lacks bytes, as on a full disk, and so counts as failed.
inline bool WriteWhole(int descriptor, const void* data, std::size_t size)
{
    return write(descriptor, data, size) == static_cast<ssize_t>(size);
}
