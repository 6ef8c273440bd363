#include "Connection.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

template <typename Address>
const sockaddr* General(const Address& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

bool Connection::Send(const std::string& bytes) const
{
    const ssize_t count = send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return count == static_cast<ssize_t>(bytes.size());
}

const std::string& Connection::Received()
{
    // The program's next text isn't sent before the last one is confirmed, which takes a while if
    // the system isn't told to do it at once, again and again. Means nothing to a UNIX socket.
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof(on));
    char bytes[8192];
    while (!closed) {
        const ssize_t count = recv(descriptor, bytes, sizeof(bytes), MSG_DONTWAIT);
        if (count > 0)
            received.append(bytes, static_cast<std::size_t>(count));
        else if (count < 0 && errno == EAGAIN)
            break;
        else
            closed = true;
    }
    return received;
}

bool Connection::WaitFor(const std::string& text, std::chrono::milliseconds limit)
{
    return WaitUntil([&] { return Received().find(text) != std::string::npos; }, limit);
}

bool Connection::IsClosed()
{
    Received();
    return closed;
}

void Connection::Close()
{
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
    closed = true;
}

void Connection::Attach(int connected)
{
    Close();
    descriptor = connected;
    closed = connected < 0;
}

Controller::Controller(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Attach(made);
    // Bytes go out with the call that sends them, also behind others that aren't confirmed yet.
    const int on = 1;
    setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (connect(made, General(address), sizeof(address)) < 0)
        Close();
}

void Controller::Reset()
{
    const linger atOnce = {1, 0};
    setsockopt(Descriptor(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    Close();
}

Neighbour::Neighbour(const std::string& path)
    : listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        throw std::length_error(path);
    std::memcpy(address.sun_path, path.data(), path.size());
    unlink(path.c_str());
    constexpr int kBacklog = 4;
    if (bind(listener, General(address), sizeof(address)) < 0 || listen(listener, kBacklog) < 0)
        throw std::runtime_error(path);
}

Neighbour::~Neighbour()
{
    close(listener);
}

bool Neighbour::Accept(std::chrono::milliseconds limit)
{
    int made = -1;
    WaitUntil([&] { return (made = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; },
              limit);
    Attach(made);
    return made >= 0;
}

// The read that has emptied the socket goes on while it finds more. By the second look it is over.
bool Neighbour::WaitUntilRead()
{
    int looks = 0;
    return WaitUntil([&] {
        int unread = 1;
        Received();
        const bool empty = ioctl(Descriptor(), SIOCOUTQ, &unread) == 0 && unread == 0;
        looks = empty ? looks + 1 : 0;
        return looks == 2;
    });
}
