// Waits and times: those of the unit's clock if there is one. Otherwise waits are divided by the
// speed of the unit; a wait shorter than the clock's step isn't rounded down to none.

#include <algorithm>
#include <cstdint>

#include <ctime>
#include <poll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include "Faults.h"
#include "Journal.h"
#include "Real.h"
#include "Settings.h"
#include "Turn.h"

#pragma GCC visibility push(default)

namespace {

constexpr std::int64_t kMicros = 1000000;
constexpr std::int64_t kNanos = 1000000000;

std::int64_t Divided(std::int64_t duration)
{
    const std::int64_t speed = Speed();
    return (duration + speed - 1) / speed;
}

// A duration of the given parts of a second, divided. `Time` is a timeval or a timespec.
template <typename Time, typename Part>
Time DividedTime(const Time& time, Part Time::*part, std::int64_t parts)
{
    const std::int64_t divided = Divided(time.tv_sec * parts + time.*part);
    Time result = {};
    result.tv_sec = static_cast<decltype(result.tv_sec)>(divided / parts);
    result.*part = static_cast<Part>(divided % parts);
    return result;
}

template <typename Time, typename Part>
void MultiplyTime(Time& time, Part Time::*part, std::int64_t parts)
{
    const std::int64_t whole = (time.tv_sec * parts + time.*part) * Speed();
    time.tv_sec = static_cast<decltype(time.tv_sec)>(whole / parts);
    time.*part = static_cast<Part>(whole % parts);
}

#if __TIMESIZE == 32
// 64-bit times as 32-bit machines pass them.
struct WideTimeval {
    std::int64_t tv_sec;
    std::int64_t tv_usec;
};
struct WideTimespec {
    std::int64_t tv_sec;
    std::int32_t tv_nsec;
    std::int32_t padding;
};
#endif

template <typename Time>
using Select = int(int, fd_set*, fd_set*, fd_set*, Time*);
template <typename Time>
using Pselect = int(int, fd_set*, fd_set*, fd_set*, const Time*, const sigset_t*);

template <typename Time, typename Part>
Time TimeOf(std::int64_t nanos, Part Time::*part, std::int64_t parts)
{
    Time result = {};
    result.tv_sec = static_cast<decltype(result.tv_sec)>(nanos / kNanos);
    result.*part = static_cast<Part>(nanos % kNanos / (kNanos / parts));
    return result;
}

// When a wait that begins now ends: never without a timeout.
template <typename Time, typename Part>
virtualtime::Moment DeadlineOf(const Time* timeout, Part Time::*part, std::int64_t parts)
{
    if (timeout == nullptr)
        return virtualtime::kNever;
    const std::int64_t nanos = timeout->tv_sec * kNanos + timeout->*part * (kNanos / parts);
    return ClockNow() + std::max<std::int64_t>(nanos, 0);
}

// A select in virtual time. `call` makes a select without a wait, with the sets that it gets.
template <typename RealCall>
int SelectInTurn(virtualtime::Moment deadline, fd_set* readable, fd_set* writable, fd_set* special,
                 RealCall call)
{
    fd_set* const sets[] = {readable, writable, special};
    fd_set wanted[3];
    for (int i = 0; i < 3; ++i)
        if (sets[i] != nullptr)
            wanted[i] = *sets[i];
    BoundedText name;
    return PollInTurn(name.Add("select"), deadline, [&] {
        for (int i = 0; i < 3; ++i)
            if (sets[i] != nullptr)
                *sets[i] = wanted[i];
        return call();
    });
}

int PollInTurn(Real<int(pollfd*, nfds_t, int)>& real, pollfd* polled, nfds_t count,
               virtualtime::Moment deadline)
{
    BoundedText name;
    return PollInTurn(name.Add("poll"), deadline, [&] { return real(polled, count, 0); });
}

// Linux writes the remaining time into the timeout, so it is converted back to the program's time.
template <typename Time>
int SelectWith(Real<Select<Time>>& real, int count, fd_set* readable, fd_set* writable,
               fd_set* special, Time* timeout)
{
    if (FailsNow(calls::select, kNoSubject))
        return -1;
    if (timeout != nullptr && (timeout->tv_sec < 0 || timeout->tv_usec < 0))
        return real(count, readable, writable, special, timeout);
    if (HasClock()) {
        const virtualtime::Moment deadline = DeadlineOf(timeout, &Time::tv_usec, kMicros);
        const int result = SelectInTurn(deadline, readable, writable, special, [&] {
            Time none = {};
            return real(count, readable, writable, special, &none);
        });
        if (timeout != nullptr)
            *timeout =
                TimeOf(std::max<std::int64_t>(deadline - ClockNow(), 0), &Time::tv_usec, kMicros);
        return result;
    }
    if (timeout == nullptr)
        return real(count, readable, writable, special, timeout);
    Time divided = DividedTime(*timeout, &Time::tv_usec, kMicros);
    const int result = real(count, readable, writable, special, &divided);
    MultiplyTime(divided, &Time::tv_usec, kMicros);
    *timeout = divided;
    return result;
}

template <typename Time>
int PselectWith(Real<Pselect<Time>>& real, int count, fd_set* readable, fd_set* writable,
                fd_set* special, const Time* timeout, const sigset_t* signals)
{
    if (FailsNow(calls::select, kNoSubject))
        return -1;
    if (timeout != nullptr && (timeout->tv_sec < 0 || timeout->tv_nsec < 0))
        return real(count, readable, writable, special, timeout, signals);
    if (HasClock()) {
        const virtualtime::Moment deadline = DeadlineOf(timeout, &Time::tv_nsec, kNanos);
        return SelectInTurn(deadline, readable, writable, special, [&] {
            const Time none = {};
            return real(count, readable, writable, special, &none, signals);
        });
    }
    if (timeout == nullptr)
        return real(count, readable, writable, special, timeout, signals);
    const Time divided = DividedTime(*timeout, &Time::tv_nsec, kNanos);
    return real(count, readable, writable, special, &divided, signals);
}

// A sleep of `wanted`, which `call` gets divided; `left` gets what a signal has left of it.
template <typename Time, typename RealCall>
int SleepWith(const Time* wanted, Time* left, RealCall call)
{
    if (wanted == nullptr || wanted->tv_sec < 0 || wanted->tv_nsec < 0)
        return call(wanted, left);
    if (HasClock()) {
        BoundedText name;
        AwaitTurn(name.Add("sleep"), DeadlineOf(wanted, &Time::tv_nsec, kNanos),
                  [] { return false; });
        return 0;
    }
    const Time divided = DividedTime(*wanted, &Time::tv_nsec, kNanos);
    const int result = call(&divided, left);
    if (result != 0 && left != nullptr)
        MultiplyTime(*left, &Time::tv_nsec, kNanos);
    return result;
}

Real<int(const timespec*, timespec*)> realNanosleep("nanosleep");

// Journals the sleep and makes it. 0, or -1 with the remaining time.
int JournalledSleep(const char* name, unsigned number, timespec& time)
{
    if (Root() != nullptr) {
        BoundedText line;
        Journal(line.Add(name).Add("(").AddNumber(number).Add(")"));
    }
    return SleepWith(&time, &time, realNanosleep);
}

Real<int(pollfd*, nfds_t, int)> realPoll("poll");

virtualtime::Moment PollDeadline(int millis)
{
    return millis < 0 ? virtualtime::kNever : ClockNow() + millis * (kNanos / 1000);
}

bool IsVirtual(clockid_t clock)
{
    return HasClock() && clock != CLOCK_PROCESS_CPUTIME_ID && clock != CLOCK_THREAD_CPUTIME_ID;
}

int DividedPoll(int timeout)
{
    return timeout > 0 ? static_cast<int>(Divided(timeout)) : timeout;
}

}  // namespace

extern "C" {

unsigned sleep(unsigned seconds)
{
    timespec time = {};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(seconds);
    return JournalledSleep("sleep", seconds, time) == 0 ? 0 : static_cast<unsigned>(time.tv_sec);
}

int usleep(useconds_t micros)
{
    timespec time = {};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(micros / kMicros);
    time.tv_nsec = static_cast<decltype(time.tv_nsec)>(micros % kMicros * (kNanos / kMicros));
    return JournalledSleep("usleep", micros, time);
}

int nanosleep(const timespec* wanted, timespec* left)
{
    return SleepWith(wanted, left, realNanosleep);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* left)
{
    static Real<int(clockid_t, int, const timespec*, timespec*)> real("clock_nanosleep");
    if ((flags & TIMER_ABSTIME) != 0)  // a point in time, which can't be divided
        return real(clock, flags, wanted, left);
    return SleepWith(wanted, left, [&](const timespec* time, timespec* rest) {
        return real(clock, flags, time, rest);
    });
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* special, timeval* timeout)
{
    static Real<Select<timeval>> real("select");
    return SelectWith(real, count, readable, writable, special, timeout);
}

int pselect(int count, fd_set* readable, fd_set* writable, fd_set* special, const timespec* timeout,
            const sigset_t* signals)
{
    static Real<Pselect<timespec>> real("pselect");
    return PselectWith(real, count, readable, writable, special, timeout, signals);
}

int poll(pollfd* polled, nfds_t count, int timeout)
{
    if (FailsNow(calls::select, kNoSubject))
        return -1;
    if (HasClock())
        return PollInTurn(realPoll, polled, count, PollDeadline(timeout));
    return realPoll(polled, count, DividedPoll(timeout));
}

int __poll_chk(pollfd* polled, nfds_t count, int timeout, std::size_t size)
{
    static Real<int(pollfd*, nfds_t, int, std::size_t)> real("__poll_chk");
    if (FailsNow(calls::select, kNoSubject))
        return -1;
    if (HasClock())
        return PollInTurn(realPoll, polled, count, PollDeadline(timeout));
    return real(polled, count, DividedPoll(timeout), size);
}

int ppoll(pollfd* polled, nfds_t count, const timespec* timeout, const sigset_t* signals)
{
    static Real<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> real("ppoll");
    if (HasClock() && signals == nullptr)
        return PollInTurn(realPoll, polled, count, DeadlineOf(timeout, &timespec::tv_nsec, kNanos));
    return real(polled, count, timeout, signals);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static Real<int(clockid_t, timespec*)> real("clock_gettime");
    if (!IsVirtual(clock))
        return real(clock, time);
    *time = TimeOf(ClockNow(), &timespec::tv_nsec, kNanos);
    return 0;
}

int gettimeofday(timeval* time, void* zone) noexcept
{
    static Real<int(timeval*, void*)> real("gettimeofday");
    if (!HasClock())
        return real(time, zone);
    *time = TimeOf(ClockNow(), &timeval::tv_usec, kMicros);
    return 0;
}

time_t time(time_t* result) noexcept
{
    static Real<time_t(time_t*)> real("time");
    if (!HasClock())
        return real(result);
    const auto seconds = static_cast<time_t>(ClockNow() / kNanos);
    if (result != nullptr)
        *result = seconds;
    return seconds;
}

#if __TIMESIZE == 32
int __clock_gettime64(clockid_t clock, WideTimespec* time)
{
    static Real<int(clockid_t, WideTimespec*)> real("__clock_gettime64");
    if (!IsVirtual(clock))
        return real(clock, time);
    *time = TimeOf(ClockNow(), &WideTimespec::tv_nsec, kNanos);
    return 0;
}

int __gettimeofday64(WideTimeval* time, void* zone)
{
    static Real<int(WideTimeval*, void*)> real("__gettimeofday64");
    if (!HasClock())
        return real(time, zone);
    *time = TimeOf(ClockNow(), &WideTimeval::tv_usec, kMicros);
    return 0;
}

std::int64_t __time64(std::int64_t* result)
{
    static Real<std::int64_t(std::int64_t*)> real("__time64");
    if (!HasClock())
        return real(result);
    const std::int64_t seconds = ClockNow() / kNanos;
    if (result != nullptr)
        *result = seconds;
    return seconds;
}

int __ppoll64(pollfd* polled, nfds_t count, const WideTimespec* timeout, const sigset_t* signals)
{
    static Real<int(pollfd*, nfds_t, const WideTimespec*, const sigset_t*)> real("__ppoll64");
    if (HasClock() && signals == nullptr)
        return PollInTurn(realPoll, polled, count,
                          DeadlineOf(timeout, &WideTimespec::tv_nsec, kNanos));
    return real(polled, count, timeout, signals);
}

int __nanosleep64(const WideTimespec* wanted, WideTimespec* left)
{
    static Real<int(const WideTimespec*, WideTimespec*)> real("__nanosleep64");
    return SleepWith(wanted, left, real);
}

int __clock_nanosleep_time64(clockid_t clock, int flags, const WideTimespec* wanted,
                             WideTimespec* left)
{
    static Real<int(clockid_t, int, const WideTimespec*, WideTimespec*)> real(
        "__clock_nanosleep_time64");
    if ((flags & TIMER_ABSTIME) != 0)
        return real(clock, flags, wanted, left);
    return SleepWith(wanted, left, [&](const WideTimespec* time, WideTimespec* rest) {
        return real(clock, flags, time, rest);
    });
}

int __select64(int count, fd_set* readable, fd_set* writable, fd_set* special, WideTimeval* timeout)
{
    static Real<Select<WideTimeval>> real("__select64");
    return SelectWith(real, count, readable, writable, special, timeout);
}

int __pselect64(int count, fd_set* readable, fd_set* writable, fd_set* special,
                const WideTimespec* timeout, const sigset_t* signals)
{
    static Real<Pselect<WideTimespec>> real("__pselect64");
    return PselectWith(real, count, readable, writable, special, timeout, signals);
}
#endif

}  // extern "C"
