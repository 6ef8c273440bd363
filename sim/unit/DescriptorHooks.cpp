// Bytes through descriptors, and the requests to the DSP device.

#include <csignal>
#include <cstdarg>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Descriptors.h"
#include "DspDevice.h"
#include "Faults.h"
#include "Real.h"
#include "System.h"
#include "Transfer.h"
#include "Turn.h"

#pragma GCC visibility push(default)

namespace {

// Sends all bytes, as a blocking call does, in pieces as large as the peer accepts, or those that
// it accepts until the timeout of the socket.
ssize_t SendInTurn(int descriptor, const char* bytes, std::size_t size, int flags)
{
    const virtualtime::Moment deadline = SendDeadline(descriptor);
    std::size_t done = 0;
    bool hasTime = true;
    do {
        const ssize_t count = syscall(SYS_sendto, descriptor, bytes + done, size - done,
                                      flags | MSG_DONTWAIT, nullptr, 0);
        if (count < 0 && (errno != EAGAIN || !hasTime))
            return done > 0 ? static_cast<ssize_t>(done) : count;
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
        // Only a full socket is waited for: one that poll doesn't call writable may have room.
        if (count < 0)
            hasTime = AwaitDescriptor("write", descriptor, POLLOUT, deadline);
    } while (done < size);
    return static_cast<ssize_t>(done);
}

bool SendsInTurn(int descriptor, int flags)
{
    return HasClock() && IsSocket(OwnerOf(descriptor)) && (flags & MSG_DONTWAIT) == 0 &&
           MayBlock(descriptor);
}

// Writes with `call`, which gets the number of bytes, or to a socket in turn with the others.
template <typename RealCall>
ssize_t WriteWithFaults(int descriptor, const void* bytes, std::size_t size, int flags,
                        RealCall call)
{
    bool isReal = false;
    const ssize_t count = TransferWithFaults(calls::write, descriptor, size, [&](std::size_t fits) {
        isReal = true;
        if (SendsInTurn(descriptor, flags))
            return SendInTurn(descriptor, static_cast<const char*>(bytes), fits, flags);
        return call(fits);
    });
    // An injected failure reports a vanished peer like the kernel: with the signal, unless the
    // caller has switched it off. A real failure has raised it already.
    if (count < 0 && errno == EPIPE && !isReal && (flags & MSG_NOSIGNAL) == 0 &&
        IsSocket(OwnerOf(descriptor))) {
        const KeepErrno kept;
        std::raise(SIGPIPE);
    }
    return count;
}

}  // namespace

extern "C" {

ssize_t read(int descriptor, void* bytes, std::size_t size)
{
    static Real real(read);
    return TransferWithFaults(calls::read, descriptor, size, [&](std::size_t fits) {
        // Of everything that the unit's programs read, only sockets may block.
        if (IsSocket(OwnerOf(descriptor)))
            AwaitDescriptor("read", descriptor, POLLIN);
        return real(descriptor, bytes, fits);
    });
}

ssize_t write(int descriptor, const void* bytes, std::size_t size)
{
    static Real real(write);
    return WriteWithFaults(descriptor, bytes, size, 0,
                           [&](std::size_t fits) { return real(descriptor, bytes, fits); });
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags)
{
    static Real real(send);
    return WriteWithFaults(descriptor, bytes, size, flags,
                           [&](std::size_t fits) { return real(descriptor, bytes, fits, flags); });
}

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    static Real real(ioctl);
    std::va_list arguments;
    va_start(arguments, request);
    const auto argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    if (OwnerOf(descriptor) == Owner::DspDevice)
        return DspIoctl(request, argument);
    return real(descriptor, request, argument);
}

}  // extern "C"
