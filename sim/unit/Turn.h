#pragma once

#include "Settings.h"
#include "VirtualTime.h"

// This process as a participant of the clock; see VirtualTime.h.

// False without SIMUNIT_CLOCK: then times are real ones.
bool HasClock();

// The virtual time.
virtualtime::Moment ClockNow();

// The steps of a wait.
void SendWait(const BoundedText& call, virtualtime::Moment deadline);
bool AwaitCheck();  // Waits for the clock. True for a Check, false for a Turn.
void SendAnswer(bool isReady);

// Waits for the next turn, which comes when `isReady` returns true, or at the deadline.
template <typename IsReady>
void AwaitTurn(const BoundedText& call, virtualtime::Moment deadline, IsReady isReady)
{
    SendWait(call, deadline);
    while (AwaitCheck())
        SendAnswer(isReady());
}

// Makes a call that would block. `poll` makes it without a wait, and returns 0 while there is
// nothing.
template <typename Poll>
int PollInTurn(const BoundedText& call, virtualtime::Moment deadline, Poll poll)
{
    const int result = poll();
    if (result != 0 || deadline <= ClockNow())
        return result;
    AwaitTurn(call, deadline, [&] { return poll() != 0; });
    return poll();
}

// Records that TCP was used; the next wait reports it.
void NoteTcp();

// True for a descriptor whose calls may block.
bool MayBlock(int descriptor);

// Waits until a descriptor that may block is readable (POLLIN) or writable (POLLOUT). Returns at
// once without a clock, and for what never blocks. False when it isn't ready at the deadline.
bool AwaitDescriptor(const char* call, int descriptor, short events,
                     virtualtime::Moment deadline = virtualtime::kNever);

// When a call on the socket that begins now gives up: never without its SO_SNDTIMEO.
virtualtime::Moment SendDeadline(int socket);
