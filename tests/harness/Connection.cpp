#include "Connection.h"

#include <cerrno>
#include <cstdint>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include "Texts.h"
#include "UnixSocket.h"

namespace {

// The address of a TCP port at 127.0.0.`last`.
sockaddr_in Loopback(int port, int last)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK - 1 + static_cast<unsigned>(last));
    return address;
}

void TurnOn(int descriptor, int level, int option)
{
    const int on = 1;
    setsockopt(descriptor, level, option, &on, sizeof(on));
}

}  // namespace

bool Connection::Send(const std::string& bytes) const
{
    std::size_t done = 0;
    bool isUp = true;
    const auto isOver = [&] {
        const ssize_t count =
            send(Number(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
        isUp = count >= 0 || errno == EAGAIN;
        return !isUp || done == bytes.size();
    };
    NoteTcp();
    return (isOver() || WaitUntil(isOver)) && isUp;
}

const std::string& Connection::Received()
{
    // The program's next text isn't sent before the last one is acknowledged. The kernel delays
    // that unless it is requested each time. Has no effect on a UNIX socket.
    TurnOn(Number(), IPPROTO_TCP, TCP_QUICKACK);
    char bytes[8192];
    while (!closed) {
        const ssize_t count = recv(Number(), bytes, sizeof(bytes), MSG_DONTWAIT);
        if (count > 0)
            received.append(bytes, static_cast<std::size_t>(count));
        else if (count < 0 && errno == EAGAIN)
            break;
        else
            closed = true;
    }
    return received;
}

bool Connection::WaitFor(const std::string& text)
{
    return WaitUntil([&] { return Contains(Received(), text); });
}

bool Connection::IsClosed()
{
    Received();
    return closed;
}

void Connection::Close()
{
    owned.Close();
    NoteTcp();
    closed = true;
}

void Connection::Attach(int connected)
{
    Close();
    owned = Descriptor(connected);
    closed = connected < 0;
}

Controller::Controller(int port, int address)
{
    const sockaddr_in server = Loopback(port, address);
    Attach(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    // Bytes are sent at once, even if earlier ones aren't acknowledged yet.
    TurnOn(Number(), IPPROTO_TCP, TCP_NODELAY);
    if (connect(Number(), reinterpret_cast<const sockaddr*>(&server), sizeof(server)) < 0)
        Close();
    NoteTcp();
}

void Controller::Reset()
{
    const linger atOnce = {1, 0};
    setsockopt(Number(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    Close();
}

Peer::Peer(int type)
{
    int ends[2];
    Check(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) == 0, "no pair of sockets");
    Attach(ends[0]);
    other = ends[1];
}

Neighbour::Neighbour(const std::string& path)
    : address(path.c_str()), listener(OpenSocket(path, SOCK_STREAM))
{}

bool Neighbour::Accept(std::chrono::nanoseconds limit)
{
    int made = -1;
    WaitUntil([&] { return (made = accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0; },
              limit);
    Attach(made);
    return made >= 0;
}

void Neighbour::FillQueue()
{
    listen(listener.Get(), 0);
    do
        waiting.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    while (connect(waiting.back().Get(), address.Get(), UnixAddress::kSize) == 0);
}

int PortOf(int descriptor)
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

Port::Port(int wanted) : taken(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_in address = Loopback(wanted, 1);
    // The port may have connections of an earlier test that are closing.
    TurnOn(taken.Get(), SOL_SOCKET, SO_REUSEADDR);
    const auto* const general = reinterpret_cast<const sockaddr*>(&address);
    Check(bind(taken.Get(), general, sizeof(address)) == 0 && listen(taken.Get(), 1) == 0,
          "no free port");
}
