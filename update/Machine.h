#pragma once

#include <unistd.h>

#include "PciDsp.h"

// What the update and the read-back have in common as state machines: a loop steps them, the
// answers of the CSP move them, and silence or too many unwanted answers end them.

// The statuses. 0 or more means that the machine is active: it owns the console, and the
// controller's commands are dropped.
namespace Status {
enum Value {
    Idle = -1,
    Connect = 0,
    Request = 1,
    StartData = 2,
    Transfer = 3,
    Finished = 4,
    Failed = 5,
};
}  // namespace Status

// The outcome of a step. The loops get it as a number.
enum class Step {
    Failed = -1,
    Done = 0,
    GoesOn = 1,
};

constexpr int ToInt(Step step)
{
    return static_cast<int>(step);
}

inline constexpr int kSilenceLimit = 30;   // seconds; a wait ends above it, not at it
inline constexpr int kErrorLimit = 1024;   // unwanted answers; likewise
inline constexpr int kServerTimeout = 10;  // seconds of one timeout of the server's loop

// The line of the logs before a restart of the CSP.
inline constexpr char kRestartNote[] = "Rebooting CSP...5sec\n";
static_assert(kOffSeconds == 5, "kRestartNote has the number, too");

// Seconds from a failed attempt at a link, or at the controller's port, to the second one. An
// update that gets no link waits as long once more before it ends.
inline constexpr unsigned kRetryWait = 5;

// Makes the attempt, and if its descriptor is below 0, a second one after kRetryWait: the other
// side may start later than this program. The descriptor of the last attempt.
template <typename Attempt>
int TryTwice(Attempt attempt)
{
    const int descriptor = attempt();
    if (descriptor >= 0)
        return descriptor;
    sleep(kRetryWait);
    return attempt();
}

// Counts a pass of a loop that could send. True on the first and on every 100,000th after it, when
// the caller sends: a loop that other links keep awake would otherwise send on every pass.
inline bool CountToSend(int& count)
{
    constexpr int kSendEvery = 100000;
    const bool isTime = count == 0;
    count = (count + 1) % kSendEvery;
    return isTime;
}
