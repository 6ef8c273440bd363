#pragma once

#include "BoundedText.h"

// The journal of the calls that were simulated for the program, ROOT/sim/journal:
//
//    SECONDS.MICROS PID call(arguments) = result
//
// Each line goes out in one write, so the lines of several programs don't mix.
void Journal(const BoundedText& call);

// Records a call with its result, or with the name of errno if it failed. Returns the result.
int JournalResult(BoundedText call, int result);
