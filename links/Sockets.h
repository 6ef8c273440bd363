#pragma once

#include <cstddef>
#include <cstdint>

// The makers of the system's stream sockets. Each returns a blocking descriptor, which the caller
// owns, or a negative result with no descriptor left open. Nothing here retries; when to try again
// is the caller's decision. mkservsocUNIX and rmUNIXsoc are for the unit's other programs.

inline constexpr int kPeerLimit = 5;  // seconds that a peer gets to accept, or to make room
inline constexpr std::uint32_t kAnyAddress = 0;  // all addresses of the machine

// A socket connected to the UNIX address `path`. -1: not created; -2: not connected, also when the
// path is too long for an address (a cut path would be another one), and when a peer whose queue is
// full doesn't accept within kPeerLimit seconds.
int mkclisocUNIX(const char* path);

// A socket bound to `port` (its low 16 bits) and to the IPv4 address, a number whose first byte is
// the highest, to which no peer can connect yet. -1: not created or prepared; -2: not bound.
int mkboundsocINET(int port, std::uint32_t address = kAnyAddress);

// A socket that listens there, backlog 1. -1: not created or prepared; -2: not bound; -3: not
// listening, which is also printed.
int mkservsocINET(int port, std::uint32_t address = kAnyAddress);

// A socket that listens at the UNIX address `path`, backlog 1. Whatever is at the path is removed
// first. -1: the path can't be cleared, or the socket not created; -2: not bound, also when the
// path is too long; -3: not listening, which is also printed.
int mkservsocUNIX(const char* path);

// Removes whatever is at `path`. 0 when nothing is there now, or nothing that `stat` finds, else
// -1.
int rmUNIXsoc(const char* path);

// Bounds how long one write to the socket, or its connect, waits for the peer: it then ends as a
// failed one, or a short one. 0 seconds: no bound. What the system refuses changes nothing.
void LimitWait(int descriptor, int seconds);

// Lets the system ask a silent TCP peer for a sign of life, so that the connection of one that has
// disappeared ends after a minute and a half. What the system refuses changes nothing.
void KeepAlive(int descriptor);

// One write of `length` bytes to a connected socket. A peer that has gone shows as -1 and never as
// a SIGPIPE, whatever the process has done about that signal. Any other descriptor is written to
// as usual.
long WriteSocket(int descriptor, const void* bytes, std::size_t length);
