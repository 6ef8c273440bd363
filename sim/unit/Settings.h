#pragma once

#include "BoundedText.h"

// Settings in the program's environment, and in the control files below ROOT/sim.

// SIMUNIT_ROOT, or null: then the library changes nothing.
const char* Root();

// An absolute path below the root.
BoundedText InRoot(const char* path);

// The content of ROOT/sim/NAME, or its first word; `otherwise` when the file is absent.
BoundedText ReadControl(const char* name, const char* otherwise = "");
BoundedText ControlWord(const char* name, const char* otherwise = "");
// The number in it. False when there is none.
bool ReadControl(const char* name, unsigned long long& number);
void WriteControl(const char* name, const BoundedText& text);

// The errno of that number or name; 0 when there is none.
int ErrnoOf(const char* text);

// A decimal number at the start of the text. False without a digit.
bool ParseNumber(const char* text, unsigned long long& number);
