#pragma once

#include <cstddef>

#include "BoundedText.h"

// The removable medium: a folder, ROOT/medium, and the name of its device, in ROOT/sim/device:
// /dev/sda without that file, a partition such as /dev/sda1, or none when it was pulled out.
//
// ROOT/sim/mounts lists the mounts as /proc/mounts does, the last one on top of the others:
//
//    /dev/sda /mnt/usb vfat rw,nosuid,noexec,relatime,iocharset=sjis,codepage=932 0 0
//
// A mount outlives its medium. A medium that is inserted while a mount has its device's name gets
// the next name, /dev/sdb.

// Where a path lies that is at or below a mount point.
struct OnMedium {
    BoundedText file;  // below the root; empty when the path isn't on a medium
    bool isReadOnly = false;
    bool isPulled = false;
    bool isRoot = false;  // its top directory, which the kernel still has after that
};
void FindOnMedium(const char* path, OnMedium& found);

// The simulated calls, neither counted nor journalled: 0, or the errno.
int MountMedium(const char* source, const char* target, unsigned long flags, const char* options);
int UnmountMedium(const char* target);

// Its open files become useless.
void PullMedium();

// How many of `wanted` bytes can be moved to or from the medium now, by full-after and pull-after;
// -1 with errno when none can. Pulls the medium out when it is due.
long LimitToMedium(std::size_t wanted, bool toMedium);

// Subtracts the bytes moved from those limits.
void CountOnMedium(std::size_t count, bool toMedium);
