#pragma once

#include <cstdint>

inline constexpr std::int64_t kNoLimit = INT64_MAX;

// What happens if a log has no room for an entry. Only one process may cut a log: the entries of
// another one would be lost.
enum class AtLimit { CutLog, LoseEntry };

// Appends one entry to the log: the time in UTC, " - " and the text, byte for byte. The text brings
// its own line end; null counts as empty.
//
//    06/03/14/09:05:07 - Diag Server Start Now.
//
// False when the log can't be opened, or the entry can't be handed to the stream.
//
// The log never has more than `most` bytes: one that would is first cut down to its newest lines,
// about half of `most`. One that can't be cut stays as it is, and the entry is lost. Without room
// for the shorter log next to it, it is cut in place; a failure there may lose it.
bool AddLogFile(const char* path, const char* text, std::int64_t most = kNoLimit,
                AtLimit atLimit = AtLimit::CutLog);

// Cuts the log down to its newest `linesToKeep` lines; each piece of PieceReader counts as a
// line. False, and no change, when the log can't be read. Reads all of the log into memory; it is
// lost when it can't be created again.
bool ResetLogFile(const char* path, int linesToKeep);
