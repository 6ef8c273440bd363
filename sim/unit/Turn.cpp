#include "Turn.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>

#include "Subject.h"
#include "System.h"
#include "Times.h"
#include "UnixAddress.h"

using virtualtime::Message;
using virtualtime::Moment;
using virtualtime::Word;

namespace {

bool usesTcp = false;

constexpr int kHighDescriptor = 900;  // out of the way of the program's own

int HighOne(int descriptor)
{
    const auto high =
        static_cast<int>(syscall(SYS_fcntl, descriptor, F_DUPFD_CLOEXEC, kHighDescriptor));
    direct::Close(descriptor);
    return high;
}

[[noreturn]] void Fail(const char* what)
{
    BoundedText line;
    line.Add("libsimunit: the clock ").Add(what).Add("\n");
    direct::Write(STDERR_FILENO, line.Get(), line.Length());
    syscall(SYS_exit_group, 1);
    std::abort();
}

struct Clock {
    int socket = -1;
    int time = -1;

    Clock()
    {
        const KeepErrno kept;
        const char* path = std::getenv("SIMUNIT_CLOCK");
        if (path == nullptr)
            return;
        BoundedText timePath;
        time = HighOne(direct::Open(timePath.Add(path).Add(".time").Get(), O_RDONLY));
        const UnixAddress address(path);
        socket = HighOne(
            static_cast<int>(syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)));
        if (syscall(SYS_connect, socket, address.Get(), UnixAddress::kSize) < 0)
            Fail("can't be reached");
    }
};

const Clock& TheClock()
{
    static const Clock clock;
    return clock;
}

void Send(const Message& message)
{
    if (direct::Write(TheClock().socket, &message, sizeof(message)) != sizeof(message))
        Fail("is gone");
}

// A process that was started waits for its first turn.
__attribute__((constructor)) void Begin()
{
    if (!HasClock())
        return;
    BoundedText call;
    AwaitTurn(call.Add("start"), ClockNow(), [] { return true; });
}

}  // namespace

bool HasClock()
{
    return TheClock().socket >= 0;
}

Moment ClockNow()
{
    const KeepErrno kept;
    Moment now = 0;
    if (pread(TheClock().time, &now, sizeof(now), 0) != sizeof(now))
        Fail("has no time");
    return now;
}

void NoteTcp()
{
    usesTcp = true;
}

void SendWait(const BoundedText& call, Moment deadline)
{
    const KeepErrno kept;
    Message message;
    message.word = Word::Wait;
    message.deadline = deadline;
    message.usesTcp = usesTcp;
    usesTcp = false;
    BoundedText text;
    text.Add(program_invocation_short_name).Add(" waits in ").Add(call.Get());
    std::memcpy(message.call, text.Get(), std::min(text.Length(), sizeof(message.call) - 1));
    Send(message);
}

bool AwaitCheck()
{
    const KeepErrno kept;
    Message message;
    long count = 0;
    do
        count = direct::Read(TheClock().socket, &message, sizeof(message));
    while (count < 0 && errno == EINTR);
    if (count != sizeof(message))
        Fail("is gone");
    return message.word == Word::Check;
}

void SendAnswer(bool isReady)
{
    const KeepErrno kept;
    Message message;
    message.word = isReady ? Word::Ready : Word::Idle;
    Send(message);
}

bool MayBlock(int descriptor)
{
    const KeepErrno kept;
    const long flags = syscall(SYS_fcntl, descriptor, F_GETFL, 0);
    return flags >= 0 && (flags & O_NONBLOCK) == 0;
}

bool AwaitDescriptor(const char* call, int descriptor, short events, Moment deadline)
{
    if (!HasClock() || !MayBlock(descriptor))
        return true;
    const KeepErrno kept;
    const auto poll = [&] {
        pollfd watched = {descriptor, events, 0};
        const timespec none = {};
        return static_cast<int>(syscall(SYS_ppoll, &watched, 1, &none, nullptr, 0));
    };
    BoundedText text;
    text.Add(call).Add(" ").Add(SubjectName(descriptor).Get());
    return PollInTurn(text, deadline, poll) != 0;
}

Moment SendDeadline(int socket)
{
    const KeepErrno kept;
    timeval timeout = {};
    socklen_t size = sizeof(timeout);
    getsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, &size);
    const Moment wait = MomentOf(timeout);
    return wait > 0 ? ClockNow() + wait : virtualtime::kNever;
}
