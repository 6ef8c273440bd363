#pragma once

#include "Csp.h"
#include "Flash.h"
#include "Options.h"
#include "Patcher.h"
#include "RcServer.h"
#include "Transcript.h"
#include "UnixSocket.h"

#include <chrono>
#include <string>

// The process: the three peers of the program under test in one poll loop, and what controls them
// from outside (the DSP's switch, the file `say`, SIGTERM).
class SimPiano {
public:
    explicit SimPiano(const Options& chosen);

    // False, with the reason on standard error, when a file or socket can't be opened.
    bool Open();
    // Runs until SIGTERM, SIGINT or the frame that ends it. The result is the exit status.
    int Run();

private:
    using Clock = std::chrono::steady_clock;
    static constexpr Clock::time_point kNever = Clock::time_point::max();

    std::string Path(const char* below) const { return options.root + below; }
    bool LoadFlash();
    void Wait(bool sendingSoon);
    bool OpenWhenDue();
    void TakePower();
    void TakeSayFile();
    void TakeFaults(const std::string& words);
    bool IsTerminated() const;

    const Options options;
    Flash flash;
    Transcript transcript;
    Csp csp;
    Patcher patcher;
    RcServer rcServer;
    Descriptor dsp;
    Descriptor signals;
    Descriptor folderWatch;  // reports files in sim/
    Clock::time_point patcherOpens = kNever;
    Clock::time_point rcServerOpens = kNever;
};
