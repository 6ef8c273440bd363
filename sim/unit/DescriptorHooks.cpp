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

// An injected failure reports a vanished peer like the kernel: with the signal, unless the caller
// has switched it off. A real failure has raised it already.
ssize_t RaiseBrokenPipe(ssize_t count, int descriptor, bool quiet)
{
    if (count < 0 && errno == EPIPE && !quiet && IsSocket(OwnerOf(descriptor))) {
        const KeepErrno kept;
        std::raise(SIGPIPE);
    }
    return count;
}

// True for what may block: of everything that the unit's programs read and write, only sockets do.
void AwaitSocket(const char* call, int descriptor, short events, int flags = 0)
{
    if (IsSocket(OwnerOf(descriptor)) && (flags & MSG_DONTWAIT) == 0)
        AwaitDescriptor(call, descriptor, events);
}

// Sends all bytes, as a blocking call does, in pieces as large as the peer accepts, or those that
// it accepts until the timeout of the socket.
template <typename Send>
ssize_t SendInTurn(int descriptor, const char* bytes, std::size_t size, int flags, Send send)
{
    const virtualtime::Moment deadline = SendDeadline(descriptor);
    std::size_t done = 0;
    do {
        const bool isReady = AwaitDescriptor("write", descriptor, POLLOUT, deadline);
        const ssize_t count = send(descriptor, bytes + done, size - done, flags | MSG_DONTWAIT);
        if (count < 0 && (errno != EAGAIN || !isReady))
            return done > 0 ? static_cast<ssize_t>(done) : count;
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    } while (done < size);
    return static_cast<ssize_t>(done);
}

bool SendsInTurn(int descriptor, int flags)
{
    return HasClock() && IsSocket(OwnerOf(descriptor)) && (flags & MSG_DONTWAIT) == 0 &&
           MayBlock(descriptor);
}

Real<ssize_t(int, void*, std::size_t)> realRead("read");
Real<ssize_t(int, const void*, std::size_t, int)> realSend("send");
Real<ssize_t(int, void*, std::size_t, int)> realRecv("recv");

using Ioctl = int(int, unsigned long, ...);

int IoctlWith(Real<Ioctl>& real, int descriptor, unsigned long request, unsigned long argument)
{
    if (OwnerOf(descriptor) == Owner::DspDevice)
        return DspIoctl(request, argument);
    return real(descriptor, request, argument);
}

}  // namespace

extern "C" {

ssize_t read(int descriptor, void* bytes, std::size_t size)
{
    return TransferWithFaults(calls::read, descriptor, size, [&](std::size_t fits) {
        AwaitSocket("read", descriptor, POLLIN);
        return realRead(descriptor, bytes, fits);
    });
}

// The checked forms know the size of the buffer; libc's own check runs in the real ones.
ssize_t __read_chk(int descriptor, void* bytes, std::size_t size, std::size_t room)
{
    static Real<ssize_t(int, void*, std::size_t, std::size_t)> real("__read_chk");
    return TransferWithFaults(calls::read, descriptor, size, [&](std::size_t fits) {
        AwaitSocket("read", descriptor, POLLIN);
        return real(descriptor, bytes, fits, room);
    });
}

ssize_t recv(int descriptor, void* bytes, std::size_t size, int flags)
{
    return TransferWithFaults(calls::read, descriptor, size, [&](std::size_t fits) {
        AwaitSocket("recv", descriptor, POLLIN, flags);
        return realRecv(descriptor, bytes, fits, flags);
    });
}

ssize_t __recv_chk(int descriptor, void* bytes, std::size_t size, std::size_t room, int flags)
{
    static Real<ssize_t(int, void*, std::size_t, std::size_t, int)> real("__recv_chk");
    return TransferWithFaults(calls::read, descriptor, size, [&](std::size_t fits) {
        AwaitSocket("recv", descriptor, POLLIN, flags);
        return real(descriptor, bytes, fits, room, flags);
    });
}

ssize_t write(int descriptor, const void* bytes, std::size_t size)
{
    static Real<ssize_t(int, const void*, std::size_t)> real("write");
    bool done = false;
    const ssize_t count = TransferWithFaults(calls::write, descriptor, size, [&](std::size_t fits) {
        done = true;
        if (SendsInTurn(descriptor, 0))
            return SendInTurn(descriptor, static_cast<const char*>(bytes), fits, 0, realSend);
        return real(descriptor, bytes, fits);
    });
    return RaiseBrokenPipe(count, descriptor, done);
}

ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags)
{
    bool done = false;
    const ssize_t count = TransferWithFaults(calls::write, descriptor, size, [&](std::size_t fits) {
        done = true;
        if (SendsInTurn(descriptor, flags))
            return SendInTurn(descriptor, static_cast<const char*>(bytes), fits, flags, realSend);
        return realSend(descriptor, bytes, fits, flags);
    });
    return RaiseBrokenPipe(count, descriptor, done || (flags & MSG_NOSIGNAL) != 0);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    static Real<Ioctl> real("ioctl");
    std::va_list arguments;
    va_start(arguments, request);
    const auto argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    return IoctlWith(real, descriptor, request, argument);
}

#if __TIMESIZE == 32
int __ioctl_time64(int descriptor, unsigned long request, ...)
{
    static Real<Ioctl> real("__ioctl_time64");
    std::va_list arguments;
    va_start(arguments, request);
    const auto argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    return IoctlWith(real, descriptor, request, argument);
}
#endif

}  // extern "C"
