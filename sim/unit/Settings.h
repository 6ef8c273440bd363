#pragma once

#include "BoundedText.h"

// Settings in the program's environment, and in the control files below ROOT/sim.

// SIMUNIT_ROOT, or null: then the library changes nothing.
const char* Root();

// An absolute path below the root.
BoundedText InRoot(const char* path);

// The content of ROOT/sim/NAME, its first word, or the number in it: false when the file is absent
// or empty.
BoundedText ReadControl(const char* name);
BoundedText ControlWord(const char* name);
bool ReadControl(const char* name, unsigned long long& number);
bool HasControl(const char* name);
void WriteControl(const char* name, const BoundedText& text);

// The errno, a number or a name, in ROOT/sim/NAME; 0 when the file is absent.
int ControlErrno(const char* name);

// The errno of that number or name; 0 when there is none.
int ErrnoOf(const char* text);

// A decimal number at the start of the text. False without a digit.
bool ParseNumber(const char* text, unsigned long long& number);
