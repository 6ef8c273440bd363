#pragma once

#include <csignal>

// Those of SIGHUP, SIGINT and SIGTERM that end this program. A job in the background of a script
// ignores SIGINT.
sigset_t EndingSignals();

// True when one of the blocked signals waits to end the program.
bool IsEnding(const sigset_t& blocked);
