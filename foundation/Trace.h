#pragma once

#include <cstdio>

// Prints a text on standard output, as it is. Everything that the program traces goes through here;
// a lost trace is not a failure.
//
// `main` takes the buffer from the stream, so each trace leaves in one write. A fixed text isn't
// printed with printf: compilers make puts of it, which writes the line end by itself.
inline void Trace(const char* text)
{
    std::fputs(text, stdout);
}

// Prints a line of a label and what it labels.
inline void TraceLine(const char* label, const char* value)
{
    std::printf("%s%s\n", label, value);
}
