#pragma once

// Appends one entry to the log: the time in UTC, " - " and the text, byte for byte. The text brings
// its own line end; null counts as empty.
//
//    06/03/14/09:05:07 - Diag Server Start Now.
//
// False when the log can't be opened, or the entry can't be handed to the stream.
bool AddLogFile(const char* path, const char* text);

// Cuts the log down to its newest `linesToKeep` lines; each piece of PieceReader counts as a
// line. False, and no change, when the log can't be read. Reads all of the log into memory; it is
// lost when it can't be created again.
bool ResetLogFile(const char* path, int linesToKeep);
