#pragma once

#include <vector>

#include "TSString.h"

// Strings in an array, counted from 0. For the unit's other programs: nothing in this one uses it.
class TSStringVector {
public:
    int Count() const;

    // A copy. No bounds check.
    TSString operator[](int index) const { return strings[index]; }

    void Add(const TSString& text) { strings.push_back(text); }
    void Clear() { strings.clear(); }

    // Appends the lines of the file with their line ends, in pieces of 1,023 bytes where a line is
    // longer. False when the file can't be opened, and for a path that is neither a file nor a
    // character device.
    bool LoadFromFile(const TSString& path);

    // Writes the strings one after the other; one that can't be written doesn't stop the rest.
    // False only when the file can't be opened.
    bool SaveToFile(const TSString& path) const;

    // To standard output, with no line ends added.
    void Print() const;

private:
    std::vector<TSString> strings;  // in the order in which they were added
};
