#pragma once

#include "BoundedText.h"

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
    StreamRead,  // stdio's reads and writes for a stream, "fread" and "fwrite"
    StreamWrite,
    Uncounted  // the number of kinds
};

enum class Fault { None, Failed, Short };

// Counts a call on a file, socket or device of the unit and returns the fault planned for it by
// SIMUNIT_FAULT=kind:n:ERRNO or kind:n:short. With Failed, errno is set and the call must do
// nothing. Short is only for reads and writes.
//
// The journal names the fault and its subject: "fault write #3 EIO on /etc/KVT-release". A subject
// is a path below the root, or "tcp"; a UNIX connection is named by the path of its peer. Each
// counted call is appended as "kind n subject" to the file that SIMUNIT_CALLS names.
Fault CountCall(Call kind, int descriptor);
Fault CountCall(Call kind, const char* path);

// True when the counted call is to fail, with errno set.
template <typename Subject>
bool FailsNow(Call kind, Subject subject)
{
    return CountCall(kind, subject) == Fault::Failed;
}
