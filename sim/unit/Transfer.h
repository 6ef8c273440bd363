#pragma once

#include <algorithm>
#include <cstddef>

#include <sys/ioctl.h>
#include <sys/types.h>

#include "Descriptors.h"
#include "Faults.h"
#include "Medium.h"
#include "System.h"
#include "Turn.h"

// How many bytes a short call moves: half of what was possible, but at least one.
inline std::size_t ShortSize(int descriptor, std::size_t size, bool isRead)
{
    const KeepErrno kept;
    int waiting = 0;
    if (isRead && syscall(SYS_ioctl, descriptor, FIONREAD, &waiting) == 0 && waiting > 0)
        size = std::min(size, static_cast<std::size_t>(waiting));
    return size > 1 ? size / 2 : size;
}

// Moves up to `size` bytes with `call`, fewer if a fault or the medium limits them.
template <typename RealCall>
ssize_t TransferWithFaults(Call kind, int descriptor, std::size_t size, RealCall call)
{
    const Owner owner = OwnerOf(descriptor);
    if (!IsUnits(owner))
        return call(size);
    if (owner == Owner::Tcp)
        NoteTcp();
    const bool isRead = kind == Call::Read || kind == Call::StreamRead;
    const Fault fault = CountCall(kind, descriptor);
    if (fault == Fault::Failed)
        return -1;
    if (fault == Fault::Short)
        size = ShortSize(descriptor, size, isRead);
    if (owner == Owner::Gone) {
        errno = EIO;
        return -1;
    }
    if (owner != Owner::Medium) {
        const ssize_t count = call(size);
        if (!isRead && owner == Owner::File)
            StampFile(descriptor);
        return count;
    }

    const long room = LimitToMedium(size, !isRead);
    if (room < 0)
        return -1;
    const ssize_t count = call(static_cast<std::size_t>(room));
    if (count > 0)
        CountOnMedium(static_cast<std::size_t>(count), !isRead);
    if (!isRead)
        StampFile(descriptor);
    return count;
}
