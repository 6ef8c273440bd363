// Waits and times: those of the unit's clock if there is one, else real ones.

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

constexpr std::int64_t kMilli = 1000000;  // nanoseconds
constexpr std::int64_t kMicro = 1000;

// A time, or a duration, in a type with seconds and their parts of `nanos` each.
template <typename Time, typename Part>
Time TimeOf(virtualtime::Moment moment, Part Time::*part, std::int64_t nanos)
{
    Time result = {};
    result.tv_sec = static_cast<decltype(result.tv_sec)>(moment / virtualtime::kSecond);
    result.*part = static_cast<Part>(moment % virtualtime::kSecond / nanos);
    return result;
}

// When a wait that begins now ends: never without a timeout.
template <typename Time, typename Part>
virtualtime::Moment DeadlineOf(const Time* timeout, Part Time::*part, std::int64_t nanos)
{
    if (timeout == nullptr)
        return virtualtime::kNever;
    const std::int64_t wait = timeout->tv_sec * virtualtime::kSecond + timeout->*part * nanos;
    return ClockNow() + std::max<std::int64_t>(wait, 0);
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

// Journals a sleep of `nanos` and makes it.
void Sleep(const char* name, unsigned number, std::int64_t nanos)
{
    BoundedText line;
    if (Root() != nullptr)
        Journal(line.Add(name).Add("(").AddNumber(number).Add(")"));
    BoundedText call;
    if (HasClock())
        return AwaitTurn(call.Add("sleep"), ClockNow() + nanos, [] { return false; });
    const timespec time = TimeOf(nanos, &timespec::tv_nsec, 1);
    nanosleep(&time, nullptr);
}

bool IsVirtual(clockid_t clock)
{
    return HasClock() && clock != CLOCK_PROCESS_CPUTIME_ID && clock != CLOCK_THREAD_CPUTIME_ID;
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
    Sleep("usleep", micros, micros * kMicro);
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
    const virtualtime::Moment deadline = DeadlineOf(timeout, &timeval::tv_usec, kMicro);
    const int result = SelectInTurn(deadline, readable, writable, special, [&] {
        timeval none = {};
        return real(count, readable, writable, special, &none);
    });
    if (timeout != nullptr)
        *timeout =
            TimeOf(std::max<std::int64_t>(deadline - ClockNow(), 0), &timeval::tv_usec, kMicro);
    return result;
}

int poll(pollfd* polled, nfds_t count, int millis)
{
    static Real real(poll);
    if (FailsNow(calls::select, kNoSubject))
        return -1;
    if (!HasClock())
        return real(polled, count, millis);
    BoundedText name;
    return PollInTurn(name.Add("poll"),
                      millis < 0 ? virtualtime::kNever : ClockNow() + millis * kMilli,
                      [&] { return real(polled, count, 0); });
}

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static Real real(clock_gettime);
    if (!IsVirtual(clock))
        return real(clock, time);
    *time = TimeOf(ClockNow(), &timespec::tv_nsec, 1);
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
    *time = TimeOf(ClockNow(), &timeval::tv_usec, kMicro);
    return 0;
}

}  // extern "C"
