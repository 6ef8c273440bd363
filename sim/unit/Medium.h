#pragma once

#include <cstddef>

// The removable medium: a folder, ROOT/medium. It is mounted at /mnt/NAME while
// ROOT/sim/mounted-NAME exists, which contains the flags of the mount, none in an empty file.

// What comes after the mount point in a path on the medium; null when the path isn't on it.
const char* PathOnMedium(const char* path, unsigned long long& flags);

// The simulated calls, neither counted nor journalled: 0, or the errno.
int MountMedium(const char* source, const char* target, unsigned long flags);
int UnmountMedium(const char* target);

// How many of `wanted` bytes can be moved to or from the medium now, by full-after and pull-after;
// -1 with errno when none can.
long LimitToMedium(std::size_t wanted, bool toMedium);

// Subtracts the bytes moved from those limits, and pulls the medium out at the end of the latter.
void CountOnMedium(std::size_t count, bool toMedium);
