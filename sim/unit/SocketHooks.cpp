// Sockets: UNIX addresses of the unit lie below the root; ports are the machine's.

#include <algorithm>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "Descriptors.h"
#include "Faults.h"
#include "Journal.h"
#include "Real.h"
#include "System.h"
#include "Turn.h"
#include "UnitPath.h"
#include "UnixAddress.h"

#pragma GCC visibility push(default)

namespace {

int Track(int descriptor, Owner owner)
{
    SetOwner(descriptor, owner);
    return descriptor;
}

// The path of a UNIX address; empty for another address, and for the UNIX one without a path.
BoundedText PathOf(const sockaddr* address, socklen_t length)
{
    constexpr std::size_t kBefore = offsetof(sockaddr_un, sun_path);
    BoundedText path;
    if (address == nullptr || address->sa_family != AF_UNIX || length <= kBefore)
        return path;
    // The path needs no NUL when the length ends it.
    const std::size_t most = std::min<std::size_t>(length, sizeof(sockaddr_un)) - kBefore;
    return path.Add(reinterpret_cast<const sockaddr_un*>(address)->sun_path, most);
}

// Makes a call with an address, mapped to one below the root when it is a path of the unit.
template <typename RealCall>
int CallAtAddress(const sockaddr* address, socklen_t length, RealCall call)
{
    const BoundedText own = PathOf(address, length);
    const UnitPath path(own.Get());
    if (path.Real() == own.Get())
        return call(address, length);
    const UnixAddress mapped(path.Real());
    if (mapped.Fits())
        return call(mapped.Get(), UnixAddress::kSize);
    return FailWith(ENAMETOOLONG);
}

// In virtual time, bytes that the kernel holds back would never arrive.
void SendAtOnce(int descriptor)
{
    const KeepErrno kept;
    const int on = 1;
    if (HasClock())
        syscall(SYS_setsockopt, descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

// A connect to a UNIX socket waits for room in the listener's queue, which no poll reports: -1 with
// EAGAIN when there is none until the timeout of the socket.
template <typename Connect>
int ConnectInTurn(Connect& real, int descriptor, const sockaddr* address, socklen_t length)
{
    if (address->sa_family != AF_UNIX)
        return real(descriptor, address, length);
    const long flags = syscall(SYS_fcntl, descriptor, F_GETFL, 0);
    int error = EAGAIN;
    const auto attempt = [&] {
        syscall(SYS_fcntl, descriptor, F_SETFL, flags | O_NONBLOCK);
        if (error == EAGAIN)
            error = real(descriptor, address, length) == 0 ? 0 : errno;
        syscall(SYS_fcntl, descriptor, F_SETFL, flags);
        return error == EAGAIN ? 0 : 1;
    };
    BoundedText call;
    PollInTurn(call.Add("connect"), SendDeadline(descriptor), attempt);
    return error == 0 ? 0 : FailWith(error);
}

// The port that a listener really has; 0 when it has none.
unsigned PortOf(int descriptor)
{
    const KeepErrno kept;
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    if (syscall(SYS_getsockname, descriptor, &address, &length) < 0 ||
        address.sin_family != AF_INET)
        return 0;
    return ntohs(address.sin_port);
}

}  // namespace

extern "C" {

int socket(int family, int type, int protocol) noexcept
{
    static Real real(socket);
    if (FailsNow(calls::socket, family == AF_UNIX ? "socket" : "tcp"))
        return -1;
    return Track(real(family, type, protocol), family == AF_UNIX ? Owner::Socket : Owner::Tcp);
}

int connect(int descriptor, const sockaddr* address, socklen_t length)
{
    static Real real(connect);
    const BoundedText path = PathOf(address, length);
    if (FailsNow(calls::connect, path.Length() > 0 ? path.Get() : "tcp"))
        return -1;
    SendAtOnce(descriptor);
    if (OwnerOf(descriptor) == Owner::Tcp)
        NoteTcp();
    return CallAtAddress(address, length, [&](const sockaddr* at, socklen_t size) {
        if (!HasClock() || !MayBlock(descriptor))
            return real(descriptor, at, size);
        return ConnectInTurn(real, descriptor, at, size);
    });
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept
{
    static Real real(bind);
    if (FailsNow(calls::bind, descriptor))
        return -1;
    return CallAtAddress(address, length, [&](const sockaddr* at, socklen_t size) {
        return real(descriptor, at, size);
    });
}

int listen(int descriptor, int backlog) noexcept
{
    static Real real(listen);
    const int result = FailsNow(calls::listen, descriptor) ? -1 : real(descriptor, backlog);
    const unsigned port = PortOf(descriptor);
    if (port == 0)
        return result;
    BoundedText line;
    line.Add("listen(tcp ").AddNumber(port).Add(")");
    return JournalResult(line, result);
}

int accept(int descriptor, sockaddr* address, socklen_t* length)
{
    static Real real(accept);
    if (FailsNow(calls::accept, descriptor))
        return -1;
    AwaitDescriptor("accept", descriptor, POLLIN);
    const int made = real(descriptor, address, length);
    if (made >= 0)
        SendAtOnce(made);
    return Track(made, OwnerOf(descriptor));
}

}  // extern "C"
