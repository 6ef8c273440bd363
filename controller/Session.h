#pragma once

#include <string_view>

#include "Command.h"

// What a conversation shows of the unit's lines.
enum class Shown { All, NothingButJson };

// A command that talks to the unit: sends its groups, shows the replies line by line, and ends
// by the texts that it knows.
Outcome Ask(const Invocation& invocation);

// The same for a query of that name.
Outcome Ask(const Invocation& invocation, std::string_view query, Shown shown);

// The same with bytes from the command line.
Outcome SendBytes(const Invocation& invocation);
