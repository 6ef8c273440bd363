#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

// All that a read-back keeps between two events, beside the records that it has gathered.
struct ReadState {
    int status;
    int silence;     // seconds
    int errors;      // unwanted lines
    int flashSteps;  // steps of the way into flash mode; in the transfer, of asking for more
    std::uint32_t base;
    std::uint32_t next;  // where the next record has to begin
    std::uint32_t start;
    std::uint32_t end;
    std::uint32_t shown;  // the address that was printed last

    auto Fields() const
    {
        return std::tie(status, silence, errors, flashSteps, base, next, start, end, shown);
    }
};

// A line of the CSP and what it is, told by whoever made it.
struct CspLine {
    enum class Kind { Text, Data, Base, End };
    std::string text;
    Kind kind = Kind::Text;
    std::uint32_t address = 0;  // of data, its 16 bits; of a base, the whole address
    std::uint32_t count = 0;    // bytes of data
    bool isSound = true;        // neither damaged nor cut
};

// The rules of a read-back's conversation, stated a second time: what one line, one timeout and one
// step do to its state, whether a record is taken, and which lines go out.
class ReadRules {
public:
    struct Outcome {
        ReadState state;
        std::vector<std::string> sent;
        bool isTaken = false;  // the line has become a part of the image
        int result = 1;        // of a step
    };
    static Outcome Heard(const ReadState& before, const CspLine& line);
    static Outcome Stepped(const ReadState& before);
};
