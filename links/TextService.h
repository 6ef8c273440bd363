#pragma once

// The server side of a line-oriented text service on stream sockets, for the unit's other programs:
// nothing in this one calls it. The callers own the descriptors; nothing here closes one or waits
// with a limit.

// Sends the formatted text, cut at 8,191 bytes, together with its NUL in one write. Does nothing
// for a descriptor below 0. A failed write is ignored.
void sendmes(int descriptor, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Makes one read of at most 8,192 bytes. Returns what came, cut at its first CR or LF and without
// leading white space, or null: on a standard stream (below 3), when the peer has closed, and on a
// failed read, the reason of which the peer gets. The text is good until the next receive.
char* receivemes(int descriptor);

// Reads byte by byte up to a CR, an LF or a NUL. Returns the line without leading white space, or
// null when the peer has closed, and on a failed read, the reason of which the peer gets. What a
// line has beyond 8,192 bytes is read and dropped. The line is good until the next receive.
char* receivemes2(int descriptor);

// Looks at received text and does nothing: the place for a trace.
void dispstr(const char* label, int descriptor, const char* text);
