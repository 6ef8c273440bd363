#pragma once

#include <csignal>
#include <vector>

#include <sys/types.h>

#include "TempDir.h"
#include "Wait.h"

// A program that runs in parallel with the test and ends with this object at the latest.
class Process {
public:
    struct Setup {
        std::vector<std::string> command;      // the program's path and its arguments
        std::vector<std::string> environment;  // NAME=VALUE; of two with a name the last counts
        std::string directory;                 // to run in
        std::string output;                    // a file; without one it is closed
        std::string error;
        Clock* clock = nullptr;  // of the unit that it takes part in
    };

    explicit Process(const Setup& begin);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool IsRunning();

    // The exit status, or 128 and the signal that ended it; -1 when it still runs at the limit.
    int Wait(std::chrono::nanoseconds limit = kLimit);

    // Sends the signal and waits for the end.
    int Kill(int signal = SIGKILL);

    pid_t Id() const { return id; }
    std::string Output() const { return ReadFile(setup.output); }
    // Must not have a report of a sanitizer.
    std::string Error() const;

private:
    Setup setup;
    pid_t id = -1;
    int status = -1;
    bool ended = false;
};
