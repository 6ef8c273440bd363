#pragma once

#include <fcntl.h>

#include "AtPath.h"
#include "Descriptors.h"

inline Owner OwnerAt(const UnitPath& path)
{
    if (path.IsDspDevice())
        return Owner::DspDevice;
    if (path.IsOnMedium())
        return Owner::Medium;
    return path.IsUnits() ? Owner::File : Owner::Stranger;
}

// Opens a path of the program with `call`, which gets the path to use in its place, and notes what
// the descriptor belongs to.
template <typename RealCall>
int Opened(const char* asked, int flags, RealCall call)
{
    const UnitPath path(asked);
    const bool changes = (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
    const Owner owner = OwnerAt(path);
    const int made = AtPath(Call::Open, changes ? Intent::Change : Intent::Look, path, call);
    if (made >= 0)
        SetOwner(made, owner);
    return made;
}
