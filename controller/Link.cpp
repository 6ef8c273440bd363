#include "Link.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "Signals.h"

namespace {

// Room for the longest message of the piano, which may have no line end, and a text after it.
constexpr std::size_t kLineLimit = 8193 + 1023;
constexpr std::size_t kReadSize = 4096;
// A text that the unit sends without a line end is complete after this time. A slow link may take a
// second for each byte.
constexpr auto kTextWait = std::chrono::milliseconds(1500);
// A line that arrives so slowly is waited for.
constexpr auto kLongestLineTime = std::chrono::minutes(2);

// A peer that disappears is detected after 25 seconds.
constexpr int kKeepAliveIdle = 10;   // seconds without a byte, after which it is probed
constexpr int kKeepAliveEvery = 5;   // seconds between two probes
constexpr int kKeepAliveProbes = 3;  // without an answer

void SetOption(int descriptor, int level, int name, int value)
{
    static_cast<void>(setsockopt(descriptor, level, name, &value, sizeof(value)));
}

void KeepAlive(int descriptor)
{
    SetOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdle);
    SetOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveEvery);
    SetOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
}

// Connects to one address. The limit for sending is the one for connecting, too.
int ConnectTo(const addrinfo& address, Clock::duration limit)
{
    UniqueFd descriptor(
        socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol));
    if (!descriptor)
        return -1;
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(limit).count();
    timeval wait = {};
    wait.tv_sec = static_cast<time_t>(micros / 1000000);
    wait.tv_usec = static_cast<suseconds_t>(micros % 1000000);
    static_cast<void>(setsockopt(descriptor.Get(), SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof(wait)));
    KeepAlive(descriptor.Get());
    if (connect(descriptor.Get(), address.ai_addr, address.ai_addrlen) == 0)
        return descriptor.Release();
    if (errno == EINPROGRESS)
        errno = ETIMEDOUT;
    return -1;
}

// SIGINT, unless it is ignored.
sigset_t InterruptSet()
{
    sigset_t signals;
    sigemptyset(&signals);
    const sigset_t ending = EndingSignals();
    if (sigismember(&ending, SIGINT) == 1)
        sigaddset(&signals, SIGINT);
    return signals;
}

std::string ReasonOf(int error)
{
    const std::string reason = std::strerror(error);
    return error == ECONNREFUSED ? reason + " (is the server running?)" : reason;
}

}  // namespace

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
    closed = false;
    lostBy.clear();
    received.clear();
    skipping = false;
    int reason = 0;
    for (const addrinfo* each = addresses; each != nullptr && !descriptor; each = each->ai_next) {
        descriptor.Reset(ConnectTo(*each, limit));
        reason = errno;
    }
    freeaddrinfo(addresses);
    if (descriptor)
        WatchInterrupt();
    else
        error = "can't connect to " + host + " port " + port + ": " + ReasonOf(reason);
    return static_cast<bool>(descriptor);
}

void Link::Close()
{
    descriptor.Reset();
    interrupt.Reset();
    const sigset_t signals = InterruptSet();
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

bool Link::Send(const std::string& bytes) const
{
    watch('>', bytes);
    const ssize_t sent = send(descriptor.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(bytes.size());
}

void Link::WatchInterrupt()
{
    const sigset_t signals = InterruptSet();
    if (sigprocmask(SIG_BLOCK, &signals, nullptr) == 0)
        interrupt.Reset(signalfd(-1, &signals, SFD_CLOEXEC));
}

Link::Arrival Link::Next(Clock::time_point deadline, std::string& line, bool& isCut)
{
    while (!TakeLine(line, isCut)) {
        if (closed && received.empty())
            return lost ? Arrival::Lost : Arrival::Closed;
        const bool isOpen = skipping || !received.empty();  // a line has begun
        // A line without an end must not keep the caller waiting.
        if (Clock::now() >= (isOpen && !skipping ? lineBegin + kLongestLineTime : deadline))
            return Arrival::Silence;
        const auto until = isOpen ? lastBytes + kTextWait : deadline;
        switch (closed ? Ready::Nothing : Await(until)) {
        case Ready::Interrupt: return Arrival::Interrupted;
        case Ready::Bytes: Fill(); break;
        case Ready::Nothing:
            if (!isOpen)
                return Arrival::Silence;
            if (!std::exchange(skipping, false))
                received += '\n';
        }
    }
    return Arrival::Line;
}

// Waits until there is something to read, or the deadline has passed.
Link::Ready Link::Await(Clock::time_point deadline) const
{
    pollfd watched[] = {{descriptor.Get(), POLLIN, 0}, {interrupt.Get(), POLLIN, 0}};
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int ready = poll(watched, std::size(watched),
                               static_cast<int>(std::clamp<long long>(left, 0, 60000)));
        if (ready > 0)
            return watched[1].revents != 0 ? Ready::Interrupt : Ready::Bytes;
        if (ready == 0 && Clock::now() >= deadline)
            return Ready::Nothing;
    }
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
    lineBegin = lastBytes;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return true;
}

// Reads once.
void Link::Fill()
{
    char bytes[kReadSize];
    const ssize_t count = read(descriptor.Get(), bytes, sizeof(bytes));
    if (count < 0 && errno == EINTR)
        return;
    lost = count < 0;
    if (lost && errno != ECONNRESET)
        lostBy = std::strerror(errno);
    closed = count <= 0;
    if (closed)
        return;
    const std::string_view piece(bytes, static_cast<std::size_t>(count));
    watch('<', piece);
    Keep(piece);
}

void Link::Keep(std::string_view bytes)
{
    lastBytes = Clock::now();
    if (received.empty())
        lineBegin = lastBytes;
    if (skipping) {
        const std::size_t end = bytes.find('\n');
        skipping = end == std::string_view::npos;
        bytes.remove_prefix(skipping ? bytes.size() : end + 1);
    }
    received += bytes;
}
