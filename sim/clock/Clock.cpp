#include "Clock.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "UnixAddress.h"

using virtualtime::kNever;
using virtualtime::Message;
using virtualtime::Moment;
using virtualtime::Word;

namespace {

constexpr int kRealLimit = 60000;  // milliseconds that a participant may work
constexpr int kBacklog = 16;

// The name by which the kernel knows a process.
std::string NameOf(pid_t process)
{
    std::string name = "?";
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), name);
    return name;
}

Descriptor MakeEcho()
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    Descriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (bind(made.Get(), general, size) < 0 || getsockname(made.Get(), general, &size) < 0 ||
        connect(made.Get(), general, size) < 0)
        throw std::runtime_error("no packets to itself");
    return made;
}

std::string Seconds(Moment moment)
{
    return std::to_string(static_cast<double>(moment) / virtualtime::kSecond);
}

}  // namespace

Clock::Clock(const std::string& where)
    : path(where),
      listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      timeFile(open((where + ".time").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)),
      echo(MakeEcho())
{
    const UnixAddress address(path.c_str());
    if (!timeFile || !address.Fits() ||
        bind(listener.Get(), address.Get(), UnixAddress::kSize) < 0 ||
        listen(listener.Get(), kBacklog) < 0)
        throw std::runtime_error("no clock at " + path + ": " + std::strerror(errno));
    SetTime(virtualtime::kBegin);
}

void Clock::Expect(pid_t process)
{
    Descriptor pidfd(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    if (!pidfd)
        throw std::runtime_error("no process to expect");
    participants.push_back({process, std::move(pidfd), Descriptor(), {}});
}

bool Clock::Has(pid_t process) const
{
    return std::any_of(participants.begin(), participants.end(),
                       [&](const Participant& each) { return each.process == process; });
}

bool Clock::RunUntil(const std::function<bool()>& isMet, Moment limit, Moment step)
{
    const Moment end = now + limit;
    while (true) {
        while (LetOneWork()) {
        }
        if (NextDeadline() - now >= step) {
            if (isMet())
                return true;
            if (LetOneWork())
                continue;
        }
        const Moment deadline = NextDeadline();
        if (deadline == kNever || deadline > end)
            break;
        SetTime(deadline);
    }
    report = Describe();
    if (NextDeadline() != kNever)
        SetTime(end);
    return false;
}

// The steps are short, so that what a person starts or writes meanwhile finds its participant soon.
void Clock::RunPaced(unsigned speed)
{
    constexpr std::chrono::milliseconds kStep{5};
    while (true) {
        while (LetOneWork()) {
        }
        std::this_thread::sleep_for(kStep);
        SetTime(std::min(NextDeadline(), now + speed * std::chrono::nanoseconds(kStep).count()));
    }
}

// Asks each participant, from `next` on, whether it can go on, and lets the first one work that
// can.
bool Clock::LetOneWork()
{
    AwaitStarted();
    while (AcceptOne()) {
    }
    DeliverPackets();
    Place each = next;
    for (std::size_t left = participants.size(); left > 0; --left) {
        if (each == participants.end())
            each = participants.begin();
        const Place one = each++;
        Message answer;
        bool isThere = true;
        if (one->wait.deadline > now) {
            isThere = Send(*one, Word::Check) && Receive(*one, answer);
            if (isThere && answer.word == Word::Idle)
                continue;
        }
        next = each;
        if (isThere && Send(*one, Word::Turn) && Receive(*one, one->wait))
            usesTcp = usesTcp || one->wait.usesTcp;
        else
            Remove(one);  // others may wait for its end
        return true;
    }
    return false;
}

void Clock::AwaitStarted()
{
    for (Place each = participants.begin(); each != participants.end();) {
        pollfd watched[] = {{listener.Get(), POLLIN, 0}, {each->pidfd.Get(), POLLIN, 0}};
        if (each->socket) {
            ++each;
            continue;
        }
        if (poll(watched, 2, kRealLimit) <= 0)
            throw std::runtime_error(NameOf(each->process) + " doesn't come to the clock");
        if ((watched[0].revents & POLLIN) != 0)
            AcceptOne();
        else
            Remove(each++);
    }
}

// False when there was none.
bool Clock::AcceptOne()
{
    Descriptor made(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!made)
        return false;
    ucred peer = {};
    socklen_t size = sizeof(peer);
    getsockopt(made.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
    const auto isExpected = [&](const Participant& each) {
        return !each.socket && each.process == peer.pid;
    };
    Place found = std::find_if(participants.begin(), participants.end(), isExpected);
    if (found == participants.end()) {
        Expect(peer.pid);
        found = std::prev(participants.end());
    }
    found->socket = std::move(made);
    if (!Receive(*found, found->wait))
        Remove(found);
    return true;
}

// False when the participant has ended. Its socket is closed first, and the others after that.
bool Clock::Send(const Participant& to, Word word) const
{
    Message message;
    message.word = word;
    if (send(to.socket.Get(), &message, sizeof(message), MSG_NOSIGNAL) == sizeof(message))
        return true;
    pollfd watched = {to.pidfd.Get(), POLLIN, 0};
    if (poll(&watched, 1, kRealLimit) <= 0)
        throw std::runtime_error(NameOf(to.process) + " has left the clock");
    return false;
}

// The next message of a working participant. False when it has ended instead.
bool Clock::Receive(Participant& from, Message& message)
{
    pollfd watched[] = {{from.socket.Get(), POLLIN, 0}, {from.pidfd.Get(), POLLIN, 0}};
    while (poll(watched, 2, kRealLimit) > 0) {
        if ((watched[0].revents & POLLIN) != 0 &&
            recv(from.socket.Get(), &message, sizeof(message), MSG_DONTWAIT) == sizeof(message))
            return true;
        if ((watched[1].revents & POLLIN) != 0)
            return false;
        // A process that ends closes this socket first, and its other descriptors after that.
        if ((watched[0].revents & POLLHUP) != 0)
            watched[0].fd = -1;
    }
    throw std::runtime_error(std::string("a turn has no end after: ") + from.wait.call);
}

void Clock::DeliverPackets()
{
    if (!usesTcp)
        return;
    usesTcp = false;
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof(allowed), &allowed);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &allowed))
            continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        sched_setaffinity(0, sizeof(one), &one);
        char byte = 0;
        if (send(echo.Get(), &byte, 1, 0) != 1 || recv(echo.Get(), &byte, 1, 0) != 1)
            throw std::runtime_error("a packet to itself doesn't come back");
    }
    sched_setaffinity(0, sizeof(allowed), &allowed);
}

void Clock::Remove(Place each)
{
    usesTcp = true;  // its end closes its connections
    if (next == each)
        ++next;
    participants.erase(each);
}

void Clock::SetTime(Moment moment)
{
    now = std::max(now, moment);
    if (pwrite(timeFile.Get(), &now, sizeof(now), 0) != sizeof(now))
        throw std::runtime_error("the time can't be written");
}

Moment Clock::NextDeadline() const
{
    Moment earliest = kNever;
    for (const Participant& each : participants)
        earliest = std::min(earliest, each.wait.deadline);
    return earliest;
}

std::string Clock::Describe() const
{
    std::string lines = "nothing more happens at " + Seconds(now - virtualtime::kBegin) + " s\n";
    for (const Participant& each : participants) {
        lines += each.wait.call;
        lines += each.wait.deadline == kNever
                     ? " without a deadline\n"
                     : " until " + Seconds(each.wait.deadline - virtualtime::kBegin) + " s\n";
    }
    return lines;
}
