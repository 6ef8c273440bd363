#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What is wrong with a firmware file, before any of it reaches the flash. The unit itself loads a
// file of any content and sends it row by row; what the board then refuses, or never answers, is
// found here by the text alone.

enum class Severity {
    Warning,  // the unit writes the file, but maybe not what its author meant
    Error,    // the unit doesn't write exactly the file, or a part of the file seems to be missing
};

struct Finding {
    // From 1; the last line for what is missing at the end, 0 in an empty file.
    std::size_t line = 0;
    Severity severity = Severity::Error;   // by what the unit does with the file
    std::string text;                      // a sentence for a technician
    std::optional<std::uint32_t> address;  // of the data, where it is known
    bool isOutsideFlash = false;           // the address is that of data outside the flash
};

struct AddressRange {
    std::uint32_t start = 0;  // address of the first byte
    std::uint32_t size = 0;   // bytes, at least 1
};

enum class LineEnds { None, Lf, CrLf, Mixed };

struct HexReport {
    static constexpr std::size_t kMostFindings = 1000;

    // By the line that shows them, which can be a later one than their own. Those over the limit
    // are counted only.
    std::vector<Finding> findings;
    std::size_t errors = 0;    // all of them
    std::size_t warnings = 0;  // all of them

    std::string version;                 // as the unit reads a good file; empty without one
    std::vector<AddressRange> ranges;    // in the order of the file; what continues is one range
    std::size_t bytes = 0;               // of data
    std::size_t records = 0;             // of any type, the damaged ones left out
    std::size_t blocks = 0;              // after each of which an update waits for an answer
    LineEnds lineEnds = LineEnds::None;  // of the complete lines
};

// Checks the bytes of an Intel HEX file. `outsideFlash` is the severity of data outside the CSP's
// flash: a board whose flash nobody has described may have one there.
HexReport CheckHex(std::string_view text, Severity outsideFlash = Severity::Error);
