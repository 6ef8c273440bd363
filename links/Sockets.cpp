#include "Sockets.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "Trace.h"
#include "UniqueFd.h"

namespace {

constexpr int kNotMade = -1;
constexpr int kNotAttached = -2;
constexpr int kNotListening = -3;
constexpr int kBacklog = 1;  // one controller at a time

// Fills a cleared address. False when the path doesn't fit with its NUL.
bool MakeAddress(const char* path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    if (length >= sizeof(address.sun_path))
        return false;
    std::memcpy(address.sun_path, path, length);
    return true;
}

}  // namespace

int mkclisocUNIX(const char* path)
{
    UniqueFd made(socket(AF_UNIX, SOCK_STREAM, 0));
    if (!made)
        return kNotMade;

    sockaddr_un address;
    if (!MakeAddress(path, address))
        return kNotAttached;
    if (connect(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0)
        return kNotAttached;
    return made.Release();
}

int mkservsocINET(int port)
{
    UniqueFd made(socket(AF_INET, SOCK_STREAM, 0));
    if (!made)
        return kNotMade;
    const int on = 1;
    if (setsockopt(made.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) < 0)
        return kNotMade;

    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (bind(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0)
        return kNotAttached;
    if (listen(made.Get(), kBacklog) < 0) {
        Trace("listen client error\n");
        return kNotListening;
    }
    return made.Release();
}

int mkservsocUNIX(const char* path)
{
    // First of all: what lies at a path that can't be bound has no reason to go.
    sockaddr_un address;
    if (!MakeAddress(path, address))
        return kNotAttached;
    if (rmUNIXsoc(path) < 0)
        return kNotMade;
    UniqueFd made(socket(AF_UNIX, SOCK_STREAM, 0));
    if (!made)
        return kNotMade;

    if (bind(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0)
        return kNotAttached;
    if (listen(made.Get(), kBacklog) < 0) {
        Trace("listen server error\n");
        return kNotListening;
    }
    return made.Release();
}

int rmUNIXsoc(const char* path)
{
    struct stat found = {};
    if (stat(path, &found) < 0)
        return errno == ENOENT ? 0 : -1;
    if (unlink(path) < 0)
        return errno == ENOENT ? 0 : -1;
    return 0;
}

long WriteSocket(int descriptor, const void* bytes, std::size_t length)
{
    const long sent = send(descriptor, bytes, length, MSG_NOSIGNAL);
    return sent < 0 && errno == ENOTSOCK ? write(descriptor, bytes, length) : sent;
}
