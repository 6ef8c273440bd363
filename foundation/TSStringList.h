#pragma once

#include "TSList.h"
#include "TSString.h"

// A list of strings that it owns, each a TSString on the heap. `Delete` is that of TSList and
// removes the link only; who deletes an entry releases its string first.
class TSStringList : public TSList {
public:
    TSStringList() = default;
    ~TSStringList();
    TSStringList(const TSStringList&) = delete;
    TSStringList& operator=(const TSStringList&) = delete;

    // Appends a copy; null counts as empty.
    TSStringList& Add(const TSString& text);
    TSStringList& Add(const char* text);

    // A copy of the string under the cursor, which moves on; empty at the end of the walk.
    TSString GetNextString();

    // Releases all strings.
    TSStringList& Clear();

    // Replaces the entries by those of the file: lines with their line ends, and pieces of 1,023
    // bytes of longer lines. False, and no change, when the file can't be opened.
    bool LoadFromFile(const TSString& path);

    // Writes the strings one behind the other with nothing between them, up to the first that
    // can't be written. False only when the file can't be opened.
    bool SaveToFile(const TSString& path);

    // To standard output, each string with a line end behind it.
    void Print();
};
