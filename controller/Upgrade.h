#pragma once

#include "Command.h"

// From a medium in the unit to an updated piano: waits for the unit, searches, shows what is found
// and what is expected, asks, updates.
Outcome Upgrade(const Invocation& invocation);
