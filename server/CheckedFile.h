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

    FileBytes bytes;
    HexReport report;
    // A sentence for each error, with the path; empty for a good file. A file of another kind has
    // an error in each line, and no one cuts the server's log, so only the first are there, with
    // how many the others are.
    std::vector<std::string> errors;
};

// The system's reason for what has just failed.
std::string Reason();
