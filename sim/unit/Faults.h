#pragma once

// A kind of calls that are counted, and of which one can be made to fail.
struct Call {
    const char* name;
    unsigned long long count = 0;
};

namespace calls {

inline Call open{"open"};
inline Call read{"read"};
inline Call write{"write"};
inline Call connect{"connect"};
inline Call accept{"accept"};
inline Call select{"select"};
inline Call stat{"stat"};
inline Call statfs{"statfs"};
inline Call unlink{"unlink"};
inline Call rename{"rename"};
inline Call truncate{"ftruncate"};
inline Call fsync{"fsync"};  // and fdatasync
inline Call syncfs{"syncfs"};
inline Call sync{"sync"};
inline Call mount{"mount"};
inline Call umount{"umount"};
inline Call ioctl{"ioctl"};
inline Call socket{"socket"};
inline Call bind{"bind"};
inline Call listen{"listen"};
inline Call utime{"utime"};
inline Call streamRead{"fread"};  // stdio's reads and writes for a stream
inline Call streamWrite{"fwrite"};
inline Call uncounted{nullptr};

}  // namespace calls

constexpr int kNoSubject = -1;

enum class Fault { None, Failed, Short };

// Counts a call on a file, socket or device of the unit and returns the fault that SIMUNIT_FAULT
// plans for it. With Failed, errno is set and the call must do nothing. Short is only for reads and
// writes.
//
//    write:3:EIO                   the third write
//    open@csp_param.hex.new:EROFS  the first open of a subject whose name ends like this
//    select@-#40:EINTR             the 40th select of that subject
//    write@i2c_server_sock#0:EPIPE each write to it
//
// Instead of an errno: "short" moves fewer bytes than requested; before the call, "pull" pulls the
// medium out, and "crash" kills the program.
//
// The journal names the fault and its subject: "fault write #3 EIO on /etc/KVT-release". A subject
// is a path below the root, or "tcp"; a UNIX connection is named by the path of its peer. Each
// counted call is appended as "kind n subject" to the file that SIMUNIT_CALLS names; a rename has
// both paths, "from>to".
Fault CountCall(Call& call, int descriptor);
Fault CountCall(Call& call, const char* path);

// True when the counted call is to fail, with errno set.
template <typename Subject>
bool FailsNow(Call& call, Subject subject)
{
    return CountCall(call, subject) == Fault::Failed;
}
