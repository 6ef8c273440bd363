#pragma once

#include "Command.h"

// A command that talks to the unit: sends its groups, shows the replies line by line, and ends
// by the texts that it knows.
Outcome Ask(const Invocation& invocation);

// The same with bytes from the command line.
Outcome SendBytes(const Invocation& invocation);
