#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "FileBytes.h"
#include "HexCheck.h"

// An Intel HEX file, read to its end and checked.
struct CheckedFile {
    CheckedFile() = default;
    explicit CheckedFile(const std::string& path);

    std::string_view Text() const;

    FileBytes bytes;   // empty when the file can't be read
    HexReport report;  // of the bytes
    // A sentence for each error, with the path; empty for a good file. A file of another kind has
    // an error in each line, and no one cuts the server's log: only the first 20, then the number
    // of the rest.
    std::vector<std::string> errors;
};
