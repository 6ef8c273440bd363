#include "Link.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr std::size_t kLineLimit = 1024;
constexpr std::size_t kReadSize = 4096;
// A text that the unit sends without a line end is whole when so much time has gone by.
constexpr auto kTextWait = std::chrono::milliseconds(500);

// Waits until there is something to read. False when the deadline has passed.
bool WaitReadable(int descriptor, Clock::time_point deadline)
{
    pollfd watched = {descriptor, POLLIN, 0};
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int ready =
            poll(&watched, 1, static_cast<int>(std::clamp<long long>(left, 0, 60000)));
        if (ready > 0)
            return true;
        if (ready == 0 && Clock::now() >= deadline)
            return false;
    }
}

// Connects to one address. The limit for sending is the one for connecting, too.
int ConnectTo(const addrinfo& address, Clock::duration limit)
{
    const int descriptor =
        socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol);
    if (descriptor < 0)
        return -1;
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(limit).count();
    timeval wait = {};
    wait.tv_sec = static_cast<time_t>(micros / 1000000);
    wait.tv_usec = static_cast<suseconds_t>(micros % 1000000);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof(wait));
    if (connect(descriptor, address.ai_addr, address.ai_addrlen) == 0)
        return descriptor;
    const int reason = errno == EINPROGRESS ? ETIMEDOUT : errno;
    close(descriptor);
    errno = reason;
    return -1;
}

}  // namespace

Link::~Link()
{
    if (descriptor >= 0)
        close(descriptor);
}

bool Link::Connect(const std::string& host, const std::string& port, Clock::duration limit,
                   std::string& error)
{
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* addresses = nullptr;
    const int failure = getaddrinfo(host.c_str(), port.c_str(), &hints, &addresses);
    if (failure != 0) {
        error = "no address for " + host + ": " + gai_strerror(failure);
        return false;
    }
    for (const addrinfo* each = addresses; each != nullptr && descriptor < 0; each = each->ai_next)
        descriptor = ConnectTo(*each, limit);
    const int reason = errno;
    freeaddrinfo(addresses);
    if (descriptor >= 0)
        return true;
    error = "can't connect to " + host + " port " + port + ": " + std::strerror(reason);
    if (reason == ECONNREFUSED)
        error += " (is the server running?)";
    return false;
}

bool Link::Send(const std::string& bytes) const
{
    const ssize_t sent = send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(bytes.size());
}

void Link::EndSending() const
{
    shutdown(descriptor, SHUT_WR);
}

Link::Event Link::Next(Clock::time_point deadline, std::string& line, bool& isCut)
{
    bool isLate = false;
    while (!TakeLine(line, isCut)) {
        // A line without an end must not keep the caller waiting, either.
        if (isLate)
            return Event::Silence;
        isLate = Clock::now() >= deadline;
        if (closed && received.empty())
            return Event::Closed;
        const auto textEnd = received.empty() ? deadline : Clock::now() + kTextWait;
        if (closed || !WaitReadable(descriptor, std::min(deadline, textEnd))) {
            if (received.empty())
                return Event::Silence;
            received += '\n';
        } else if (!Fill()) {
            closed = true;
        }
    }
    return Event::Line;
}

bool Link::TakeLine(std::string& line, bool& isCut)
{
    const std::size_t end = received.find('\n');
    isCut = end > kLineLimit;
    if (end == std::string::npos && received.size() <= kLineLimit)
        return false;
    line = received.substr(0, std::min(end, kLineLimit));
    skipping = end == std::string::npos;
    received.erase(0, skipping ? received.size() : end + 1);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return true;
}

// Reads once. False when the connection has ended.
bool Link::Fill()
{
    char bytes[kReadSize];
    const ssize_t count = read(descriptor, bytes, sizeof(bytes));
    if (count <= 0)
        return count < 0 && errno == EINTR;
    Keep({bytes, static_cast<std::size_t>(count)});
    return true;
}

void Link::Keep(std::string_view bytes)
{
    if (skipping) {
        const std::size_t end = bytes.find('\n');
        skipping = end == std::string_view::npos;
        bytes.remove_prefix(skipping ? bytes.size() : end + 1);
    }
    received += bytes;
}
