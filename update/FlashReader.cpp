#include "FlashReader.h"

#include <chrono>

#include "Machine.h"
#include "PciDsp.h"
#include "ReadSet.h"
#include "TCspReader.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"
#include "UnitPaths.h"

namespace {

// An update has just restarted the CSP: it may not receive the first attempt yet, which takes over
// a minute to fail.
constexpr int kAttempts = 2;

// Many times what a read-back takes. Only timeouts count as silence, so a CSP that sends lines of
// another kind all the time would never end an attempt.
constexpr std::chrono::hours kLongestAttempt{1};

// Waits for lines of the CSP and hands them on.
void TakeLines(TCspReader& reader, TMidiCom& midi, TZaurusCom& controller)
{
    char buffer[TMidiCom::kMaxMessage];
    char* lines[TMidiCom::kMaxLines];
    ReadSet set;
    set.Add(midi.GetMidiDescriptor());
    const int ready = set.Wait(kServerTimeout);
    if (ready == 0)
        reader.IncReaderCounter();
    const int count = ready > 0 ? midi.ReadConsoleMessage2(buffer, lines, TMidiCom::kMaxLines) : 0;
    for (int i = 0; i < count; ++i)
        reader.GetCSPMessage(&midi, &controller, lines[i], 0);
}

}  // namespace

FlashReading ReadFlash(int connecttype)
{
    TMidiCom midi;
    TZaurusCom nobody;  // not connected: the texts for the controller are lost
    TCspReader reader;
    midi.Set_connecttype(connecttype);
    midi.BoundWaits();
    if (midi.SetMidiDescriptor(kMidiPatcherSocket) < 0 || !midi.Connect_i2cserver())
        return {};
    // The received text is enough, so the file that the reader saves is dropped.
    reader.SetReaderParameter(0, 0, kNowhere);
    reader.RequireProgress();
    Step step = Step::Failed;
    for (int attempt = 0; attempt < kAttempts && step != Step::Done; ++attempt) {
        reader.SetReaderStatus(Status::Connect);
        const auto end = std::chrono::steady_clock::now() + kLongestAttempt;
        while ((step = Step{reader.UpdateStatus(&midi, &nobody)}) == Step::GoesOn &&
               std::chrono::steady_clock::now() < end)
            TakeLines(reader, midi, nobody);
    }
    const int error = RestartPiano();
    return {step == Step::Done ? reader.ReceivedText() : std::string(), error};
}
