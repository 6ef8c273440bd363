#pragma once

#include <cstdio>

// Prints a text on standard output, as it is. Everything that the program traces goes through here;
// a lost trace is not a failure.
//
// `main` takes the buffer from the stream, so each text leaves in one write. Not `printf`:
// compilers make `puts` of a fixed line, which writes the line end by itself.
inline void Trace(const char* text)
{
    std::fputs(text, stdout);
}
