#pragma once

#include "Faults.h"
#include "Medium.h"
#include "System.h"
#include "UnitPath.h"

enum class Intent { Look, Change };

// Makes a call at a path of the program: `call` gets the path to use in its place. -1 with errno
// when the call is to fail, or would change a medium that is mounted read-only.
template <typename RealCall>
int AtPath(Call kind, Intent intent, const UnitPath& path, RealCall call)
{
    if (path.IsTooLong()) {
        errno = ENAMETOOLONG;
        return -1;
    }
    if (path.IsUnits() && FailsNow(kind, path.Real()))
        return -1;
    if (intent == Intent::Change && path.IsOnMedium() && IsMediumReadOnly()) {
        errno = EROFS;
        return -1;
    }
    return call(path.Real());
}
