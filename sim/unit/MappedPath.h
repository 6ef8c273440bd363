#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include "Descriptors.h"
#include "Faults.h"
#include "Journal.h"
#include "System.h"
#include "Turn.h"
#include "UnitPath.h"

enum class Intent { Look, Change };

// Makes a call on a path of the program: `call` gets the mapped path. -1 with errno when the call
// is to fail, is for a medium that was pulled out, or would change one that is mounted read-only.
template <typename RealCall>
int CallAtPath(Call& kind, Intent intent, const UnitPath& path, RealCall call)
{
    if (path.IsTooLong())
        return FailWith(ENAMETOOLONG);
    if (path.IsUnits() && FailsNow(kind, path.Own()))
        return -1;
    if (path.IsPulled()) {
        const bool makesFile = &kind == &calls::open && intent == Intent::Change;
        return FailWith(&kind == &calls::statfs ? EIO : makesFile ? ENOSPC : ENOENT);
    }
    if (intent == Intent::Change && path.IsReadOnly())
        return FailWith(EROFS);
    return call(path.Real());
}

inline Owner OwnerAt(const UnitPath& path)
{
    if (path.IsDspDevice())
        return Owner::DspDevice;
    if (path.IsOnMedium())
        return Owner::Medium;
    return path.IsUnits() ? Owner::File : Owner::Stranger;
}

// Stamps an empty file, which is new or was truncated, with the time of its opening.
inline void StampNewFile(int descriptor)
{
    struct stat found = {};
    if (fstat(descriptor, &found) == 0 && S_ISREG(found.st_mode) && found.st_size == 0)
        StampFile(descriptor);
}

// In virtual time, nobody opens the other end of a pipe.
inline void AwaitPipe(const UnitPath& path)
{
    if (!HasClock() || !path.IsUnits())
        return;
    const KeepErrno kept;
    struct stat found = {};
    const int file = direct::Open(path.Real(), O_PATH);
    const bool isPipe = file >= 0 && fstat(file, &found) == 0 && S_ISFIFO(found.st_mode);
    direct::Close(file);
    BoundedText call;
    if (isPipe)
        AwaitTurn(call.Add("open ").Add(path.Own()), virtualtime::kNever, [] { return false; });
}

// Opens a path of the program with `call`, which gets the mapped path, and records what the
// descriptor belongs to. The machine itself isn't written to: an attempt is journalled as "stray".
template <typename RealCall>
int OpenMapped(const char* name, int flags, RealCall call)
{
    const UnitPath path(name);
    const bool changes = (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
    if (changes && path.IsMachines()) {
        BoundedText line;
        Journal(line.Add("stray open(").Add(name).Add(")"));
        return FailWith(EROFS);
    }
    if ((flags & O_CREAT) != 0 && path.IsRefused())
        return FailWith(EINVAL);
    if ((flags & O_NONBLOCK) == 0)
        AwaitPipe(path);
    const Owner owner = OwnerAt(path);
    const int made = CallAtPath(calls::open, changes ? Intent::Change : Intent::Look, path, call);
    SetOwner(made, owner);
    if (made >= 0 && IsUnits(owner) && (flags & (O_CREAT | O_TRUNC)) != 0)
        StampNewFile(made);
    return made;
}
