#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One Intel HEX record in the form of the console: ":" count address type data checksum, all in
// upper-case digits.
struct PianoRecord {
    static constexpr unsigned char kData = 0;
    static constexpr unsigned char kEndOfFile = 1;
    static constexpr unsigned char kLinearAddress = 4;  // the upper 16 bits of what follows

    unsigned char type = kData;
    uint16_t address = 0;
    std::vector<unsigned char> data;

    // Nothing when the text isn't one complete record with a right checksum.
    static std::optional<PianoRecord> FromText(const std::string& text);
    std::string ToText() const;
};
