#pragma once

#include "BoundedText.h"
#include "FatName.h"
#include "Medium.h"

// A path that the program passed to libc, and the file that it means.
//
// An absolute path of the unit, such as /mnt/usb/csp_prog.hex, is mapped below the root. Others
// stay unchanged. Relative paths and those below the root belong to the unit, too, since they name
// the files that the program works on.
class UnitPath {
public:
    explicit UnitPath(const char* path);

    // True when it belongs to the unit: calls on it are counted, and fail where that is planned.
    bool IsUnits() const { return isUnits; }
    // True when the path below the root is longer than a path may be.
    bool IsTooLong() const { return mapped.IsCut() || mapped.Length() >= PATH_MAX; }
    // True at or below a mount point at which a medium is mounted.
    bool IsOnMedium() const { return medium.file.Length() > 0; }
    bool IsReadOnly() const { return medium.isReadOnly; }
    // True for a file of a medium that isn't there now.
    bool IsPulled() const;
    // True when the medium refuses to make a file of this name.
    bool IsRefused() const { return IsOnMedium() && HasBadFatName(own); }
    bool IsDspDevice() const;
    // True for a path of the machine itself, except its devices and the kernel's own files.
    bool IsMachines() const;

    // As the program passed it.
    const char* Own() const { return own; }
    // The path to pass to libc.
    const char* Real() const { return mapped.Length() > 0 ? mapped.Get() : own; }

private:
    const char* own;
    bool isUnits = false;
    OnMedium medium;
    BoundedText mapped;  // empty when the path stays as it is
};
