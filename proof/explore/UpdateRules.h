#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "HexImage.h"

// All that an update keeps between two events.
struct UpdateState {
    int status;
    int silence;  // seconds
    int errors;   // unwanted answers
    int flashSteps;
    int retries;
    std::uint32_t refused;  // the address of the latest NG
    int nextRow;
    std::uint32_t upper;
    std::uint32_t reached;  // the address behind the last row gone through
    bool sending;

    auto Fields() const
    {
        return std::tie(status, silence, errors, flashSteps, retries, refused, nextRow, upper,
                        reached, sending);
    }
};

// The rules of an update's conversation, stated a second time: what one answer, one second and one
// step do to its state, and which lines go out. They know the image by its places in the flash and
// nothing of the program but the numbers of the statuses.
class UpdateRules {
public:
    UpdateRules(const HexImage& itsImage, bool server) : image(itsImage), inServer(server) {}

    struct Outcome {
        UpdateState state;
        std::vector<std::string> sent;
        int result = 1;  // of a step
    };
    Outcome Heard(const UpdateState& state, const std::string& line) const;
    Outcome Stepped(const UpdateState& state) const;
    // How much one timeout adds to the silence.
    int Timeout() const { return inServer ? 10 : 1; }

private:
    void HearInTransfer(Outcome& outcome, const std::string& line) const;
    void StepConnect(Outcome& outcome) const;
    void StepRequest(Outcome& outcome) const;
    void StepTransfer(Outcome& outcome) const;
    void StepFailed(Outcome& outcome) const;
    void SendBlock(Outcome& outcome) const;
    void SendFrom(Outcome& outcome, std::uint32_t address) const;

    const HexImage& image;
    const bool inServer;
};
