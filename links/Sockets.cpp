#include "Sockets.h"

#include <cerrno>
#include <cstdint>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "Trace.h"
#include "UniqueFd.h"

namespace {

constexpr int kNotMade = -1;
constexpr int kNotAttached = -2;
constexpr int kNotListening = -3;
constexpr int kBacklog = 1;  // one controller at a time

// The questions to a silent peer, in seconds.
constexpr int kFirstQuestion = 60;
constexpr int kNextQuestion = 10;
constexpr int kQuestions = 3;
constexpr unsigned kUnansweredLimit = 90000;  // milliseconds of sent bytes without an answer

// Fills a cleared address. False when the path doesn't fit with its NUL.
bool MakeAddress(std::string_view path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return false;
    path.copy(address.sun_path, path.size());
    return true;
}

sockaddr_in PortAddress(int port, std::uint32_t address)
{
    sockaddr_in made = {};
    made.sin_family = AF_INET;
    made.sin_addr.s_addr = htonl(address);
    made.sin_port = htons(static_cast<std::uint16_t>(port));
    return made;
}

template <typename Value>
bool SetOption(int descriptor, int level, int option, const Value& value)
{
    return setsockopt(descriptor, level, option, &value, sizeof(value)) == 0;
}

// What the system's calls take for an address of any family.
template <typename Address>
const sockaddr* AnyAddress(const Address& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

template <typename Address>
bool Bind(const UniqueFd& made, const Address& address)
{
    return bind(made.Get(), AnyAddress(address), sizeof(address)) == 0;
}

// The descriptor leaves `made` when it listens.
int Listen(UniqueFd& made, const char* failure)
{
    if (listen(made.Get(), kBacklog) < 0) {
        Trace(failure);
        return kNotListening;
    }
    return made.Release();
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
    LimitWait(made.Get(), kPeerLimit);
    if (connect(made.Get(), AnyAddress(address), sizeof(address)) < 0) {
        // The system's word for it, "temporarily unavailable", hides that nobody has accepted.
        if (errno == EAGAIN)
            errno = ETIMEDOUT;
        return kNotAttached;
    }
    LimitWait(made.Get(), 0);
    return made.Release();
}

int mkboundsocINET(int port, std::uint32_t address)
{
    UniqueFd made(socket(AF_INET, SOCK_STREAM, 0));
    if (!made)
        return kNotMade;
    // A server that is started again finds the connections of the last one still in the kernel.
    if (!SetOption(made.Get(), SOL_SOCKET, SO_REUSEADDR, 1))
        return kNotMade;
    return Bind(made, PortAddress(port, address)) ? made.Release() : kNotAttached;
}

int mkservsocINET(int port, std::uint32_t address)
{
    UniqueFd made(mkboundsocINET(port, address));
    return made ? Listen(made, "listen client error\n") : made.Get();
}

int mkservsocUNIX(const char* path)
{
    // First of all: what is at a path that can't be bound has no reason to go.
    sockaddr_un address;
    if (!MakeAddress(path, address))
        return kNotAttached;
    if (rmUNIXsoc(path) != 0)
        return kNotMade;
    UniqueFd made(socket(AF_UNIX, SOCK_STREAM, 0));
    if (!made)
        return kNotMade;
    if (!Bind(made, address))
        return kNotAttached;
    return Listen(made, "listen server error\n");
}

int rmUNIXsoc(const char* path)
{
    // Somebody else may remove it between the two calls, which is as good.
    struct stat found = {};
    if (stat(path, &found) < 0)
        return errno == ENOENT ? 0 : -1;
    if (unlink(path) < 0)
        return errno == ENOENT ? 0 : -1;
    return 0;
}

void LimitWait(int descriptor, int seconds)
{
    timeval limit = {};
    limit.tv_sec = seconds;
    static_cast<void>(SetOption(descriptor, SOL_SOCKET, SO_SNDTIMEO, limit));
}

void KeepAlive(int descriptor)
{
    static_cast<void>(SetOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1) &&
                      SetOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, kFirstQuestion) &&
                      SetOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, kNextQuestion) &&
                      SetOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, kQuestions) &&
                      SetOption(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, kUnansweredLimit));
}

long WriteSocket(int descriptor, const void* bytes, std::size_t length)
{
    const long sent = send(descriptor, bytes, length, MSG_NOSIGNAL);
    // A pipe or a terminal has no send.
    return sent < 0 && errno == ENOTSOCK ? write(descriptor, bytes, length) : sent;
}
