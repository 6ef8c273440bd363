#pragma once

#include <sys/mount.h>

#include "UnitPaths.h"

// The backup of the CSP's parameters: copies between the Intel HEX file on the unit's disk and the
// compressed file in the root of a removable medium.
//
//    disk    csp_param.hex --Compress--> csp_param.rlg --CopyFile--> csp_param.rlg    medium
//            csp_param.hex <--------------Decompress---------------- csp_param.rlg
//
// A copy blocks until it has ended and leaves the medium mounted, read-only after a copy from it.
// Nothing is sent or logged, and after a failure what was written before it stays.
namespace ParameterBackup {

// Where the medium may be mounted; the first at which something is.
inline constexpr const char* kPlaces[] = {kFloppy, kUsb};

// How it is mounted for a copy.
inline constexpr unsigned long kWriteFlags = MS_MGC_VAL | MS_NOSUID | MS_NOEXEC;
inline constexpr unsigned long kReadFlags = kWriteFlags | MS_RDONLY;

// 0, or -1 with errno.
int Mount(const char* device, const char* place, unsigned long flags);

enum Result {
    Copied = 0,
    NoParameterFile = -1,  // there is no file to copy
    NotCompressed = -2,
    NoRoom = -3,     // the old copy stays, though deleting it might have made room
    NotCopied = -4,  // the mount, the copy or the expansion failed
    NoMedium = -5,   // neither mount point could be unmounted; nothing has changed
};

Result CopyToMedium();
Result CopyFromMedium();

// The line for the controller and the log.
const char* Text(int result);

}  // namespace ParameterBackup
