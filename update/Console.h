#pragma once

// What the two state machines share of the conversation with the CSP, which talks in short lines of
// text: a line goes out without a line end and comes back with CR LF.

#include "TMidiCom.h"

// The statuses that the update and the read-back have in common. 0 or more means that the machine
// is active, which gives it the console and shuts the controller's commands out.
enum ConsoleStatus {
    Idle = -1,
    Connect = 0,
    Request = 1,
    StartData = 2,
    Transfer = 3,
    Finished = 4,
    Failed = 5,
};

// The results of a step.
enum StepResult {
    HasFailed = -1,
    IsDone = 0,
    GoesOn = 1,
};

constexpr int kSilenceLimit = 30;        // seconds; a wait ends above it, not at it
constexpr int kErrorLimit = 1024;        // unwanted answers; likewise
constexpr int kServerTimeout = 10;       // seconds that one timeout of the server's loop stands for
constexpr int kFlashModeEvery = 100000;  // steps between two sends of the flash mode groups
constexpr unsigned kFlashModeWait = 500000;  // microseconds from flash mode to the console

// Adds a step to a count that only matters as a multiple of kFlashModeEvery. It starts again there,
// for nothing bounds the passes of a loop that is kept awake.
inline void CountFlashMode(int& steps)
{
    steps = (steps + 1) % kFlashModeEvery;
}

constexpr int kMidiGroupSize = 4;

// An answer of the CSP, copied out of the link's buffer: NUL-terminated, cut at 1,023 bytes and
// filled up with NUL bytes, so that a field at a fixed place can always be looked at.
class ConsoleLine {
public:
    explicit ConsoleLine(const char* message);

    const char* Text() const { return text; }
    bool BeginsWith(const char* answer) const;

    // The address of an "OK" or "NG": eight hexadecimal digits behind the word and one character.
    // 0 when one of them is no digit.
    unsigned int Address() const;

private:
    static constexpr int kSize = 1024;
    char text[kSize];
};

// Sends one line, a NUL-terminated text, on channel 0. A lost link shows up as silence.
void SendLine(TMidiCom* midi, const char* line);

// Sends the two groups that bring the CSP into flash mode. The first one differs between the
// machines, the second doesn't.
void SendFlashMode(TMidiCom* midi, const unsigned char (&firstGroup)[kMidiGroupSize]);
