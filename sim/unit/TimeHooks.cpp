// Waits and times: those of the unit's clock if there is one, else real ones.

#include <algorithm>
#include <cstdint>

#include <poll.h>
#include <sys/select.h>
#include <unistd.h>

#include "Faults.h"
#include "Journal.h"
#include "Real.h"
#include "Settings.h"
#include "Times.h"
#include "Turn.h"

#pragma GCC visibility push(default)

using virtualtime::Moment;

namespace {

// A select in virtual time. `call` makes a select without a wait, with the sets that it gets.
template <typename RealCall>
int SelectInTurn(Moment deadline, fd_set* readable, fd_set* writable, fd_set* special,
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

// Journals a sleep and makes it.
void Sleep(const char* name, unsigned number, Moment duration)
{
    BoundedText line;
    if (Root() != nullptr)
        Journal(line.Add(name).Add("(").AddNumber(number).Add(")"));
    BoundedText call;
    if (HasClock())
        return AwaitTurn(call.Add("sleep"), ClockNow() + duration, [] { return false; });
    const timespec time = TimespecOf(duration);
    nanosleep(&time, nullptr);
}

}  // namespace

extern "C" {

unsigned sleep(unsigned seconds)
{
    Sleep("sleep", seconds, seconds * virtualtime::kSecond);
    return 0;
}

int usleep(useconds_t micros)
{
    Sleep("usleep", micros, micros * virtualtime::kMicro);
    return 0;
}

// Linux writes the remaining time into the timeout.
int select(int count, fd_set* readable, fd_set* writable, fd_set* special, timeval* timeout)
{
    static Real real(select);
    if (FailsNow(calls::select, kNoSubject))
        return -1;
    if (!HasClock() || (timeout != nullptr && (timeout->tv_sec < 0 || timeout->tv_usec < 0)))
        return real(count, readable, writable, special, timeout);
    const Moment deadline =
        timeout == nullptr ? virtualtime::kNever : ClockNow() + MomentOf(*timeout);
    const int result = SelectInTurn(deadline, readable, writable, special, [&] {
        timeval none = {};
        return real(count, readable, writable, special, &none);
    });
    if (timeout != nullptr)
        *timeout = TimevalOf(std::max<Moment>(deadline - ClockNow(), 0));
    return result;
}

int poll(pollfd* polled, nfds_t count, int millis)
{
    static Real real(poll);
    if (FailsNow(calls::select, kNoSubject))
        return -1;
    if (!HasClock())
        return real(polled, count, millis);
    const Moment deadline =
        millis < 0 ? virtualtime::kNever : ClockNow() + millis * virtualtime::kMilli;
    BoundedText name;
    return PollInTurn(name.Add("poll"), deadline, [&] { return real(polled, count, 0); });
}

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static Real real(clock_gettime);
    if (!HasClock())
        return real(clock, time);
    *time = TimespecOf(ClockNow());
    return 0;
}

#if __TIMESIZE == 32
// The C++ library of 32-bit machines asks for 32-bit times.
struct NarrowTime {
    std::int32_t tv_sec;
    std::int32_t tv_nsec;
};
int NarrowClockTime(clockid_t clock, NarrowTime* narrow) noexcept __asm__("clock_gettime");
int NarrowClockTime(clockid_t clock, NarrowTime* narrow) noexcept
{
    timespec time = {};
    const int result = clock_gettime(clock, &time);
    *narrow = {static_cast<std::int32_t>(time.tv_sec), static_cast<std::int32_t>(time.tv_nsec)};
    return result;
}
#endif

int gettimeofday(timeval* time, void* zone) noexcept
{
    static Real real(gettimeofday);
    if (!HasClock())
        return real(time, zone);
    *time = TimevalOf(ClockNow());
    return 0;
}

}  // extern "C"
