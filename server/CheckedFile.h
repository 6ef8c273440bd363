#pragma once

#include <string>
#include <string_view>

#include "FileBytes.h"
#include "HexCheck.h"

// An Intel HEX file, read whole and checked.
struct CheckedFile {
    CheckedFile() = default;
    explicit CheckedFile(const std::string& path);

    std::string_view Text() const;

    FileBytes bytes;
    HexReport report;
    std::string error;  // the first, with the path; empty for a good file
};

// The system's reason for what has just failed.
std::string Reason();
