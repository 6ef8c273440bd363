#pragma once

#include "Text.h"

// The kinds of calls that are counted, and of which one can be made to fail.
enum class Call {
    Open,
    Read,
    Write,
    Connect,
    Accept,
    Select,
    Stat,
    Statfs,
    Unlink,
    Rename,
    Mount,
    Umount,
    Ioctl,
    Socket,
    Bind,
    Listen,
    Utime,
    Uncounted  // the number of kinds
};

enum class Fault { None, Failed, Short };

// Counts a call on one of the unit's own things and says what is to go wrong with it, after
// SIMUNIT_FAULT=kind:n:ERRNO or kind:n:short. With Failed, errno is set and the call must do
// nothing. Short is only for reads and writes.
Fault CountCall(Call kind);

// True when the counted call is to fail, with errno set.
inline bool FailsNow(Call kind)
{
    return CountCall(kind) == Fault::Failed;
}

// Writes "kind count" a line to the file that SIMUNIT_COUNT names.
void WriteCounts();
