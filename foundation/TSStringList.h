#pragma once

#include "TSList.h"
#include "TSString.h"

// A list of strings that it owns, each a TSString on the heap. `Delete` is that of TSList and
// removes the link only; RemoveFirst releases the string as well.
//
// GetNextString and Print are for the unit's other programs.
class TSStringList : public TSList {
public:
    TSStringList() = default;
    ~TSStringList();
    TSStringList(const TSStringList&) = delete;
    TSStringList& operator=(const TSStringList&) = delete;

    // Appends a copy; null counts as empty.
    TSStringList& Add(const TSString& text);
    TSStringList& Add(const char* text);

    // The string under the cursor, which moves on; null at the end. The list keeps it.
    TSString* NextString();

    // The same, as a copy; empty at the end.
    TSString GetNextString();

    // Removes the first string, if there is one. The cursor is on the next one after that.
    void RemoveFirst();

    // Releases all strings.
    TSStringList& Clear();

    // Replaces the entries by those of the file: lines with their line ends, and pieces of 1,023
    // bytes of longer lines. False, and no change, when the file can't be opened, and for a path
    // that is neither a file nor a character device.
    bool LoadFromFile(const TSString& path);

    // Writes the strings one after the other with nothing between them, up to the first that
    // can't be written. False only when the file can't be opened.
    bool SaveToFile(const TSString& path);

    // To standard output, each string followed by a line end.
    void Print();
};
