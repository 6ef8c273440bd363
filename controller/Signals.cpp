#include "Signals.h"

namespace {

constexpr int kEnding[] = {SIGHUP, SIGINT, SIGTERM};

}  // namespace

sigset_t EndingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : kEnding) {
        struct sigaction action = {};
        if (sigaction(each, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset(&signals, each);
    }
    return signals;
}

bool IsEnding(const sigset_t& blocked)
{
    sigset_t pending;
    sigpending(&pending);
    for (const int each : kEnding) {
        if (sigismember(&blocked, each) == 1 && sigismember(&pending, each) == 1)
            return true;
    }
    return false;
}
