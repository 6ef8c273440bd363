#include "UpdateRules.h"

#include <cstdlib>

#include "Console.h"

namespace {

// The program's own names of these limits aren't used: a wrong limit is to be found.
constexpr int kLongestSilence = 30;
constexpr int kMostErrors = 1024;
constexpr int kFlashModePeriod = 100000;

bool Begins(const std::string& line, const std::string& word)
{
    return line.compare(0, word.size(), word) == 0;
}

// The address behind a word of two letters; 0 unless eight hex digits stand there.
std::uint32_t AddressIn(const std::string& line)
{
    constexpr std::size_t kAt = 3;
    constexpr std::size_t kDigits = 8;
    const std::string digits = line.substr(line.size() < kAt ? line.size() : kAt, kDigits);
    if (digits.size() < kDigits ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return 0;
    return static_cast<std::uint32_t>(std::strtoul(digits.c_str(), nullptr, 16));
}

void Enter(UpdateState& state, int status)
{
    state.status = status;
    state.silence = 0;
}

}  // namespace

UpdateRules::Outcome UpdateRules::Heard(const UpdateState& before, const std::string& line) const
{
    Outcome outcome{before, {}};
    UpdateState& state = outcome.state;
    if (state.status == Connect && Begins(line, "Status:Flash Idle")) {
        Enter(state, Request);
        state.errors = 0;
        if (!inServer)
            state.flashSteps = 0;
    } else if (state.status == Request && Begins(line, "Start WRITE ?")) {
        Enter(state, StartData);
        state.errors = 0;
    } else if (state.status == Transfer) {
        HearInTransfer(outcome, line);
    } else if (state.status == Connect || state.status == Request) {
        ++state.errors;
    }
    return outcome;
}

void UpdateRules::HearInTransfer(Outcome& outcome, const std::string& line) const
{
    constexpr std::size_t kShortestOk = 11;
    UpdateState& state = outcome.state;
    const bool isAlive = !inServer && (Begins(line, "Erasing") || Begins(line, "WR:"));
    const int silence = state.silence;
    state.silence = 0;  // unless it turns out to be no answer
    if (line.size() >= kShortestOk && Begins(line, "OK")) {
        state.errors = 0;
        if (!inServer || (state.sending && AddressIn(line) == state.reached))
            SendBlock(outcome);
        return;
    }
    if (isAlive) {
        state.errors = 0;
        return;
    }
    if (inServer)
        state.silence = silence;  // there, only an OK breaks it
    if (Begins(line, "NG")) {
        ++state.errors;
        if (AddressIn(line) != state.refused)
            SendFrom(outcome, AddressIn(line));
        state.refused = AddressIn(line);
    } else if (Begins(line, "END")) {
        state.sending = false;
    } else if (Begins(line, "Finished")) {
        state.status = Finished;
    } else if (Begins(line, "Failed")) {
        state.status = Failed;
    } else {
        state.silence = silence;
        ++state.errors;
    }
}

UpdateRules::Outcome UpdateRules::Stepped(const UpdateState& before) const
{
    Outcome outcome{before, {}};
    UpdateState& state = outcome.state;
    switch (state.status) {
    case Connect: StepConnect(outcome); break;
    case Request: StepRequest(outcome); break;
    case StartData:
        state.nextRow = 0;
        state.upper = 0;
        state.reached = 0;
        state.sending = true;
        SendBlock(outcome);
        Enter(state, Transfer);
        break;
    case Transfer: StepTransfer(outcome); break;
    case Finished: outcome.result = 0; return outcome;
    case Failed: StepFailed(outcome); return outcome;
    default: break;
    }
    if (state.errors > kMostErrors)
        outcome.result = -1;
    return outcome;
}

void UpdateRules::StepConnect(Outcome& outcome) const
{
    UpdateState& state = outcome.state;
    if (inServer || state.flashSteps == 0)
        outcome.sent = {"group BF 00 7F 00", "group BF 66 01 00", "STATUS"};
    if (!inServer)
        state.flashSteps = (state.flashSteps + 1) % kFlashModePeriod;
    if (state.silence > kLongestSilence)
        Enter(state, Request);
}

void UpdateRules::StepRequest(Outcome& outcome) const
{
    outcome.sent = {"WRITE  :"};
    outcome.state.nextRow = 0;
    outcome.state.sending = false;
    if (outcome.state.silence > kLongestSilence)
        outcome.result = -1;
}

void UpdateRules::StepTransfer(Outcome& outcome) const
{
    UpdateState& state = outcome.state;
    if (state.silence <= kLongestSilence)
        return;
    if (inServer || state.refused == 0) {
        outcome.result = -1;
        return;
    }
    SendFrom(outcome, state.refused);
    state.refused = 0;
    state.silence = 0;
}

void UpdateRules::StepFailed(Outcome& outcome) const
{
    UpdateState& state = outcome.state;
    if (inServer || state.retries > 0) {
        outcome.result = -1;
        return;
    }
    state.retries = 1;
    Enter(state, Request);
}

// Goes on with the next row, to the end of its block.
void UpdateRules::SendBlock(Outcome& outcome) const
{
    UpdateState& state = outcome.state;
    if (state.nextRow < image.RowCount()) {
        const int last = image.EndOfBlock(state.nextRow);
        for (int row = state.nextRow; row <= last; ++row)
            if (!image.Text(row).empty())
                outcome.sent.push_back(image.Text(row));
        state.nextRow = last + 1;
        state.upper = image.Upper(last);
        state.reached = image.Reached(last);
    }
    if (state.nextRow == image.RowCount())
        state.sending = false;
}

void UpdateRules::SendFrom(Outcome& outcome, std::uint32_t address) const
{
    UpdateState& state = outcome.state;
    if (address != state.reached) {
        state.nextRow = image.RowFor(address);
        state.upper = image.Upper(image.RowCount() - 1);
        state.reached = image.Reached(image.RowCount() - 1);
    }
    SendBlock(outcome);
}
