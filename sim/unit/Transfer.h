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

template <typename RealCall>
ssize_t TransferFile(int descriptor, std::size_t size, bool isRead, RealCall call)
{
    const ssize_t count = call(size);
    if (!isRead)
        StampFile(descriptor);
    return count;
}

// A medium that is gone has nothing to read. What is written to it stays in the kernel until it is
// flushed, which fails then.
inline ssize_t TransferGone(std::size_t size, bool isRead)
{
    if (!isRead)
        return static_cast<ssize_t>(size);
    return FailWith(EIO);
}

template <typename RealCall>
ssize_t TransferMedium(int descriptor, std::size_t size, bool isRead, RealCall call)
{
    const long room = LimitToMedium(size, !isRead);
    if (OwnerOf(descriptor) == Owner::Gone)
        return TransferGone(size, isRead);
    if (room < 0)
        return -1;
    const ssize_t count = TransferFile(descriptor, static_cast<std::size_t>(room), isRead, call);
    if (count > 0)
        CountOnMedium(static_cast<std::size_t>(count), !isRead);
    return OwnerOf(descriptor) == Owner::Gone && !isRead ? static_cast<ssize_t>(size) : count;
}

// Moves up to `size` bytes with `call`, fewer if a fault or the medium limits them.
template <typename RealCall>
ssize_t TransferWithFaults(Call& kind, int descriptor, std::size_t size, RealCall call)
{
    if (!IsUnits(OwnerOf(descriptor)))
        return call(size);
    if (OwnerOf(descriptor) == Owner::Tcp)
        NoteTcp();
    const bool isRead = &kind == &calls::read || &kind == &calls::streamRead;
    const Fault fault = CountCall(kind, descriptor);
    if (fault == Fault::Failed)
        return -1;
    if (fault == Fault::Short)
        size = ShortSize(descriptor, size, isRead);
    switch (OwnerOf(descriptor)) {
    case Owner::File: return TransferFile(descriptor, size, isRead, call);
    case Owner::Medium: return TransferMedium(descriptor, size, isRead, call);
    case Owner::Gone: return TransferGone(size, isRead);
    default: return call(size);
    }
}
