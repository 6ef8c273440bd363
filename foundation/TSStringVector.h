#pragma once

#include <cstddef>
#include <vector>

#include "TSString.h"

// Strings in an array, counted from 0.
class TSStringVector {
public:
    int Count() const { return static_cast<int>(strings.size()); }

    // A copy. No bounds check.
    TSString operator[](int index) const { return strings[static_cast<std::size_t>(index)]; }

    void Add(const TSString& text) { strings.push_back(text); }
    void Clear() { strings.clear(); }

    // Appends the lines of the file with their line ends, in pieces of 1,023 bytes where a line is
    // longer. False when the file can't be opened.
    bool LoadFromFile(const TSString& path);

    // Writes the strings one behind the other; one that can't be written doesn't stop the rest.
    // False only when the file can't be opened.
    bool SaveToFile(const TSString& path) const;

    // To standard output, with no line ends added.
    void Print() const;

private:
    std::vector<TSString> strings;
};
