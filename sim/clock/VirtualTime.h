#pragma once

#include <cstdint>
#include <limits>

// Virtual time in a simulated unit: it stands still while anyone works, and jumps to the next
// deadline when everyone waits.
//
// The participants are the processes of the unit: the program, simpiano, diagctl. The preload
// library makes a process one when SIMUNIT_CLOCK, the path at which the clock listens, is in its
// environment. The owner of the clock, a test or a script's clock process, lets time pass: only
// while it waits do the participants get turns, one at a time, in the order of their start. So each
// run is the same, to the microsecond, however busy the machine is.
//
//   participant                        clock
//   connects, sends Wait(0)    ---->              waits for each process that was started
//                              <----   Turn       goes on: its wait is over
//   ... works, time stands still ...
//   Wait(deadline, call)       ---->              a call that would block, such as select
//                              <----   Check      is anything ready?
//   Ready or Idle              ---->              a poll without a timeout of what it waits for
//                              <----   Turn       the answer was Ready, or the deadline has come
//
// A round of Checks that are all answered Idle is a quiet point: nothing happens until time passes.
// The owner then checks its own condition. This may read bytes and so give others work, so time
// jumps only after another quiet round. Bytes on a local socket are visible to a Check as soon as
// the call that sent them has returned, which was before its sender's Wait.
//
// On a busy machine, TCP packets may wait for the kernel's own threads. So a participant that has
// used TCP in its turn reports it. The clock then sends itself a packet on each processor and
// continues when these have arrived, since packets keep their order.
//
// A participant leaves when its process has ended, which its pidfd reports: by then all its
// descriptors are closed. The time is in a file, SIMUNIT_CLOCK.time, as one Moment.
namespace virtualtime {

// Nanoseconds since 1970.
using Moment = std::int64_t;
constexpr Moment kSecond = 1000000000;
constexpr Moment kMilli = 1000000;
constexpr Moment kMicro = 1000;
constexpr Moment kNever = std::numeric_limits<Moment>::max();
constexpr Moment kBegin = 1700000000 * kSecond;  // of each unit

enum class Word : std::uint32_t { Wait, Ready, Idle, Check, Turn };

// Each is one packet of a SOCK_SEQPACKET socket.
struct Message {
    Moment deadline = kNever;  // of a Wait
    Word word = Word::Idle;
    bool usesTcp = false;  // of a Wait: since the last one
    char call[75] = "";    // of a Wait: "simpiano waits in select", for the report
};

}  // namespace virtualtime
