#pragma once

#include "BoundedText.h"

// A path that the program passed to libc, and the file that it means.
//
// An absolute path of the unit, such as /mnt/usb/csp_prog.hex, is looked up below the root. Others
// stay as they are; relative ones and those below the root are the unit's own all the same, for
// they name the files that the program was given to work on.
class UnitPath {
public:
    explicit UnitPath(const char* asked);

    // True when the calls on it are the unit's: counted, and failed where that is wanted.
    bool IsUnits() const { return isUnits; }
    // True when the path below the root is longer than a path may be.
    bool IsTooLong() const { return mapped.IsCut() || mapped.Length() >= PATH_MAX; }
    // True below a mount point at which the medium is mounted.
    bool IsOnMedium() const { return isOnMedium; }
    bool IsReadOnly() const;
    bool IsDspDevice() const;
    // True for a path of the machine itself, but for its devices and what the kernel shows.
    bool IsMachines() const;

    // As the program gave it.
    const char* Asked() const { return asked; }
    // The path to hand to libc.
    const char* Real() const { return mapped.Length() > 0 ? mapped.Get() : asked; }

private:
    const char* asked;
    bool isUnits = false;
    bool isOnMedium = false;
    unsigned long long mountFlags = 0;
    BoundedText mapped;  // empty when the path stays as it is
};
