#include "ReadRules.h"

#include "Console.h"

namespace {

// The program's own names of these limits aren't used: a wrong limit is to be found.
constexpr int kLongestSilence = 30;
constexpr int kMostErrors = 1024;
constexpr int kFlashModePeriod = 100000;
constexpr std::uint32_t kBlockSize = 0x1000;
constexpr std::uint32_t kStart = 0x90040000;
constexpr std::uint32_t kEnd = 0x900A0000;

constexpr char kCancel[] = "CANCEL :";
constexpr char kNext[] = "NEXT   :";
constexpr char kRead[] = "READ   :90040000:900A0000:0C";

bool Begins(const std::string& line, const std::string& word)
{
    return line.compare(0, word.size(), word) == 0;
}

void Enter(ReadState& state, int status)
{
    state.status = status;
    state.silence = 0;
    state.errors = 0;
}

void HearInConnect(ReadRules::Outcome& outcome, const std::string& line)
{
    ReadState& state = outcome.state;
    state.flashSteps = 0;
    if (Begins(line, "Status:Flash Idle")) {
        Enter(state, Request);
        return;
    }
    ++state.errors;
    outcome.sent = {kCancel};
}

// A record is taken when it begins where the last one has ended; a base record may go anywhere.
bool IsNext(ReadState& state, const CspLine& line)
{
    if (line.kind == CspLine::Kind::Base) {
        state.base = line.address;  // also from a damaged one, behind which the read ends
        if (line.isSound)
            state.next = line.address;
        return line.isSound;
    }
    if (line.kind != CspLine::Kind::Data || !line.isSound ||
        state.base + line.address != state.next)
        return false;
    state.next += line.count;
    return true;
}

// Each multiple of the block's size that the data come to is asked for once: behind it, only
// records that leave the place as it is can follow without another.
void AskForMore(ReadRules::Outcome& outcome)
{
    ReadState& state = outcome.state;
    if (state.next % kBlockSize != 0) {
        state.flashSteps = 0;
        return;
    }
    state.shown = state.next;
    if (state.next == state.start || state.next >= state.end)
        return;
    if (state.flashSteps == 0)
        outcome.sent = {kNext};
    state.flashSteps = (state.flashSteps + 1) % kFlashModePeriod;
}

void HearInTransfer(ReadRules::Outcome& outcome, const CspLine& line)
{
    if (line.kind == CspLine::Kind::End) {
        outcome.isTaken = true;
        outcome.state.status = Finished;
    } else if (IsNext(outcome.state, line)) {
        outcome.isTaken = true;
        AskForMore(outcome);
    } else {
        outcome.sent = {kCancel};
        outcome.state.status = Failed;
    }
}

void StepConnect(ReadRules::Outcome& outcome)
{
    ReadState& state = outcome.state;
    const bool sends = state.flashSteps == 0;
    if (sends)
        outcome.sent = {"group BF 00 00 7F", "group BF 66 01 00", "STATUS"};
    state.flashSteps = (state.flashSteps + 1) % kFlashModePeriod;
    if (state.silence > kLongestSilence || (sends && state.errors > kMostErrors))
        Enter(state, Request);
}

void StepRequest(ReadRules::Outcome& outcome)
{
    outcome.state.start = kStart;
    outcome.state.end = kEnd;
    outcome.sent = {kRead};
}

// The second cancel of a refused record is the failed status' own.
void Fail(ReadRules::Outcome& outcome)
{
    outcome.sent.emplace_back(kCancel);
    outcome.result = -1;
}

}  // namespace

ReadRules::Outcome ReadRules::Heard(const ReadState& before, const CspLine& line)
{
    Outcome outcome{before, {}};
    ReadState& state = outcome.state;
    switch (state.status) {
    case Connect: HearInConnect(outcome, line.text); break;
    case Request:
        if (Begins(line.text, "Start READ"))
            Enter(state, StartData);
        else
            ++state.errors;
        break;
    case Transfer: HearInTransfer(outcome, line); break;
    default: break;
    }
    return outcome;
}

ReadRules::Outcome ReadRules::Stepped(const ReadState& before)
{
    Outcome outcome{before, {}};
    ReadState& state = outcome.state;
    const bool isSilent = state.silence > kLongestSilence;
    switch (before.status) {
    case Connect: StepConnect(outcome); break;
    case Request: StepRequest(outcome); break;
    case StartData:
        state.flashSteps = 0;
        state.status = Transfer;
        state.silence = 0;
        outcome.sent = {kNext};
        break;
    case Finished: outcome.result = 0; return outcome;
    case Failed: Fail(outcome); return outcome;
    case Transfer: break;
    default: return outcome;
    }
    const bool isWaiting = before.status == Request || before.status == Transfer;
    if ((isWaiting && isSilent) || state.errors > kMostErrors)
        Fail(outcome);
    return outcome;
}
