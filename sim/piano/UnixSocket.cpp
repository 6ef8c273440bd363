#include "UnixSocket.h"

#include <cstdio>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    if (this != &other) {
        Close();
        number = other.number;
        other.number = -1;
    }
    return *this;
}

void Descriptor::Close()
{
    if (number >= 0)
        close(number);
    number = -1;
}

static Descriptor BindAt(const std::string& path, int type)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        std::fprintf(stderr, "simpiano: %s: path too long for a socket\n", path.c_str());
        return Descriptor();
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);

    Descriptor made(socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    unlink(path.c_str());
    if (!made || bind(made.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        std::perror(("simpiano: " + path).c_str());
        return Descriptor();
    }
    return made;
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
