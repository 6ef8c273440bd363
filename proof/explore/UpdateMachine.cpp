#include "UpdateMachine.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "Limits.h"
#include "Violation.h"

namespace {

constexpr int kLongestSilence = 30;

constexpr char kUnwanted[] = "?\r\n";

std::string AddressLine(const char* word, std::uint32_t address)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%s %08X\r\n", word, address);
    return text;
}

}  // namespace

UpdateMachine::UpdateMachine(bool server) : inServer(server), rules(image, server)
{
    updater.midi = &link.midi;
    char name[] = "/tmp/explore-XXXXXX";
    const int file = mkstemp(name);
    if (file < 0 || dprintf(file, "%s", image.FileText().c_str()) < 0)
        throw Violation{"the image can't be written"};
    close(file);
    path = name;
}

UpdateMachine::~UpdateMachine()
{
    updater.midi = nullptr;
    unlink(path.c_str());
}

UpdateMachine::State UpdateMachine::Start()
{
    Hold(updater.GetUpdateStatus() == Idle, "a new machine isn't idle");
    Hold(!updater.SetUpdateStatus(Connect), "an update starts without an image");
    LoadImage();
    Hold(updater.SetUpdateStatus(Connect), "an update with an image doesn't start");
    Step();
    return Save();
}

const std::vector<const char*>& UpdateMachine::EventNames()
{
    static const std::vector<const char*> names = {
        "a pass",
        "a timeout",
        "silence to the limit",
        "unwanted lines to the limit",
        "the OK that is due",
        "Status:Flash Idle",
        "Status:Flash Busy",
        "Start WRITE ?",
        "Start READ",
        "OK 90042000",
        "OK 9004200",
        "OK 9004zzzz",
        "OK",
        "NG 90042000",  // between two rows, on a block's end
        "NG 90043FF6",  // inside a row
        "NG 90046000",  // on a block's end, inside a row
        "NG 90050000",  // where a base record stands
        "NG 90051ffe",  // the same on the second page, in small letters
        "NG 90052000",
        "NG 90053FF8",
        "NG 9006FFFF",  // behind the last row
        "NG 00000000",
        "NG",
        "Erasing 90040000",
        "WR:90040800",
        "END",
        "Finished",
        "Failed",
        "?",
        "",
    };
    return names;
}

std::optional<int> UpdateMachine::Apply(const std::string& event)
{
    if (event == "a pass")
        return Step();
    if (event == "a timeout")
        return Wait();
    if (event == "silence to the limit")
        return Save().silence == 0 ? std::optional(WaitToTheLimit()) : std::nullopt;
    if (event == "unwanted lines to the limit")
        return Save().errors == 0 ? std::optional(HearToTheLimit()) : std::nullopt;
    if (event == "the OK that is due")
        return Hear(AddressLine("OK", Save().reached));
    return Hear(event + "\r\n");
}

void UpdateMachine::Load(const State& state)
{
    updater.updateStatus = state.status;
    updater.updateCounter = state.silence;
    updater.errorCounter = state.errors;
    updater.flashModeCounter = state.flashSteps;
    updater.retryCount = state.retries;
    updater.ngAddress = state.refused;
    updater.lineIndex = state.nextRow;
    updater.upperAddress = state.upper;
    updater.sendedAddress = state.reached;
    updater.sending = state.sending;
}

UpdateMachine::State UpdateMachine::Save() const
{
    const auto address = [](unsigned long value) { return static_cast<std::uint32_t>(value); };
    return {updater.updateStatus,
            updater.updateCounter,
            updater.errorCounter,
            updater.flashModeCounter,
            updater.retryCount,
            address(updater.ngAddress),
            updater.lineIndex,
            address(updater.upperAddress),
            address(updater.sendedAddress),
            updater.sending};
}

void UpdateMachine::CheckSilence()
{
    int seconds = 0;
    while (Wait() > 0) {
        seconds += rules.Timeout();
        Hold(seconds <= kSilenceBound, "silence doesn't end the update");
    }
}

std::optional<UpdateMachine::State> UpdateMachine::Restart()
{
    const State ended = Save();
    updater.ClearUpdateStatus();
    Hold(updater.GetUpdateStatus() == Idle, "a cleared update isn't idle");
    Hold(updater.updateCounter == 0, "a cleared update keeps its silence");
    Hold(!updater.SetUpdateStatus(Connect) && updater.GetUpdateStatus() == Idle,
         "a cleared update keeps its image");
    LoadImage();
    if (!inServer)
        return std::nullopt;

    Hold(updater.SetUpdateStatus(Connect), "an update doesn't start again");
    if (Step() < 0) {
        Hold(ended.errors > kMostErrors, "a new start fails at once");
        return std::nullopt;
    }
    const State started = Save();
    if (tried.insert(Whole(started)).second)
        CheckGoodConversation();
    return started;
}

void UpdateMachine::CheckLongRuns()
{
    Start();
    for (int i = 0; i < kFlashModePeriod + 2; ++i)
        Hold(Step() > 0, "a pass ends the update");
    Hold(updater.flashModeCounter <= kFlashModePeriod, "the count of passes has no bound");
}

std::string UpdateMachine::Whole(const State& state)
{
    char text[200];
    std::snprintf(text, sizeof(text),
                  "status %d silence %d errors %d flash steps %d retries %d refused %X next row %d "
                  "upper %X reached %X sending %d",
                  state.status, state.silence, state.errors, state.flashSteps, state.retries,
                  state.refused, state.nextRow, state.upper, state.reached, state.sending ? 1 : 0);
    return text;
}

std::string UpdateMachine::Folded(const State& state)
{
    State folded = state;
    folded.silence = ClassOf(state.silence, kLongestSilence);
    folded.errors = ClassOf(state.errors, kMostErrors);
    folded.flashSteps = ClassOf(state.flashSteps, kFlashModePeriod);
    return Whole(folded);
}

void UpdateMachine::LoadImage()
{
    Hold(updater.LoadIntelHex(path.c_str(), nullptr) == 0 &&
             updater.hexFile->lineCount == image.RowCount(),
         "the image can't be loaded");
    Hold(updater.GetUpdateStatus() == Idle, "a load starts an update");
}

int UpdateMachine::Step()
{
    const UpdateRules::Outcome expected = rules.Stepped(Save());
    const int result =
        inServer ? updater.UpdateStatusDiag(&link.midi, &link.zaurus) : updater.UpdateStatus();
    Hold(result == expected.result, "a step has another result");
    Compare(expected, "by a step");
    Hold(result != 0 || updater.updateStatus == Finished, "a success that the CSP didn't report");
    return result;
}

int UpdateMachine::Wait()
{
    const int before = updater.updateCounter;
    if (inServer)
        updater.IncUpdateCounter();
    else
        ++updater.updateCounter;  // as the mode's loop does
    Hold(updater.updateCounter == before + rules.Timeout(), "a timeout counts wrongly");
    return Step();
}

int UpdateMachine::Hear(const std::string& line)
{
    const State before = Save();
    const UpdateRules::Outcome expected = rules.Heard(before, line);
    const int length = static_cast<int>(line.size());
    if (inServer)
        updater.GetCSPMessageDiag(&link.midi, &link.zaurus, line.c_str(), length);
    else
        updater.GetCSPMessage(line.c_str(), length);
    Compare(expected, "by an answer");
    Hold(updater.updateStatus != Finished || before.status == Finished || line == "Finished\r\n",
         "finished without being told so");
    return Step();
}

int UpdateMachine::WaitToTheLimit()
{
    int result = 1;
    while (result > 0 && updater.updateCounter < kLongestSilence)
        result = Wait();
    return result;
}

int UpdateMachine::HearToTheLimit()
{
    int result = 1;
    while (result > 0 && updater.errorCounter < kMostErrors && updater.updateStatus <= Transfer)
        result = Hear(kUnwanted);
    return result;
}

// From a start on, with a CSP that does what it should.
void UpdateMachine::CheckGoodConversation()
{
    Hear("Status:Flash Idle\r\n");
    Hear("Start WRITE ?\r\n");
    while (updater.sending)
        Hold(Hear(AddressLine("OK", Save().reached)) > 0, "a good update ends early");
    Hold(updater.lineIndex == image.RowCount(), "a good update leaves rows out");
    Hear("END\r\n");
    Hold(Hear("Finished\r\n") == 0, "a good update isn't finished");
}

void UpdateMachine::Compare(const UpdateRules::Outcome& expected, const char* otherwise)
{
    const State& state = expected.state;
    const State found = Save();
    const std::vector<std::string> sent = link.TakeSent();
    Hold(link.midi.GetMidiDescriptor() >= 0, "the link has been closed");
    HoldLines(sent, expected.sent, otherwise);
    if (found.Fields() != state.Fields())
        throw Violation{std::string("another state ") + otherwise + ": " + Whole(found) +
                        " instead of " + Whole(state)};
    Hold(found.errors <= kMostErrors + 2 && found.retries <= 1 && found.silence <= kMostSilence &&
             found.flashSteps <= kFlashModePeriod,
         "a counter goes on above its limit");
}
