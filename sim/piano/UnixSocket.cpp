#include "UnixSocket.h"

#include <cstdio>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "UnixAddress.h"

Descriptor OpenSocket(const std::string& path, int type)
{
    const UnixAddress address(path.c_str());
    Descriptor made(socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    unlink(path.c_str());
    if (bind(made.Get(), address.Get(), UnixAddress::kSize) == 0 &&
        (type == SOCK_DGRAM || listen(made.Get(), SOMAXCONN) == 0))
        return made;
    std::perror(("simpiano: " + path).c_str());
    return Descriptor();
}

Descriptor AcceptFrom(const Descriptor& listener)
{
    Descriptor made(listener ? accept(listener.Get(), nullptr, nullptr) : -1);
    if (made)
        fcntl(made.Get(), F_SETFL, O_NONBLOCK);
    return made;
}
