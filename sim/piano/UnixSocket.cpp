#include "UnixSocket.h"

#include <cstdio>

#include <sys/socket.h>
#include <unistd.h>

#include "UnixAddress.h"

static Descriptor BindAt(const std::string& path, int type)
{
    const UnixAddress address(path.c_str());
    Descriptor made(socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    unlink(path.c_str());
    if (bind(made.Get(), address.Get(), UnixAddress::kSize) == 0)
        return made;
    std::perror(("simpiano: " + path).c_str());
    return Descriptor();
}

Descriptor ListenAt(const std::string& path)
{
    Descriptor made = BindAt(path, SOCK_STREAM);
    if (made && listen(made.Get(), SOMAXCONN) != 0) {
        std::perror(("simpiano: " + path).c_str());
        return Descriptor();
    }
    return made;
}

Descriptor BindDatagramAt(const std::string& path)
{
    return BindAt(path, SOCK_DGRAM);
}
