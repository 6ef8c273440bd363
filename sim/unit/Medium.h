#pragma once

#include <cstddef>

#include "BoundedText.h"

// The removable medium: a folder, ROOT/medium, that appears at a mount point as a symbolic link.
// The directory that the link covers waits in ROOT/sim.

// True when the path lies at or below a mount point with the medium in it.
bool IsMediumAt(const char* path);

// True when the medium is mounted read-only.
bool IsMediumReadOnly();

// The played calls, without count and journal: 0, or the errno.
int MountMedium(const char* source, const char* target, unsigned long flags);
int UnmountMedium(const char* target);

// How many of `wanted` bytes can be moved to or from the medium now, by what full-after and
// pull-after say; -1 with errno when none can.
long LimitToMedium(std::size_t wanted, bool toMedium);

// Takes what was moved off those limits, and pulls the medium out at the end of the latter.
void CountOnMedium(std::size_t count, bool toMedium);
