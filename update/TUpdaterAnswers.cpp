// What the answers of the CSP do to an update.

#include "TUpdater.h"

#include <cstdint>

#include "Console.h"
#include "HexFormat.h"
#include "Trace.h"
#include "UpdateMode.h"

namespace {

// What an answer shows.
enum class Sign {
    Progress,  // it ends the silence and the count of unwanted answers
    Busy,      // the same, and alone its line is printed; in the server it is unwanted
    Life,      // alone it ends the silence
    Unwanted,  // it is counted and has no other effect
};

// Only even percentages are worth a text. An image without data has none.
void ReportProgress(const UpdateMode& mode, const THexFile& image, std::uint32_t address)
{
    const std::uint32_t size = image.endAddress - image.startAddress;
    if (size == 0)
        return;
    const std::uint32_t percent = 100U * (address - image.startAddress) / size;
    if (percent % 2 == 0)
        mode.SendInServer((TSString("Sending Data ") + TSString(percent) + "%\n").c_str());
}

}  // namespace

struct TUpdater::Answer {
    int status = Status::Idle;  // in which it is understood
    Sign sign = Sign::Unwanted;
    const char* prefix = "";  // the text that the line begins with
    int shortest = 0;         // characters of the line, its CR LF included
    int next = Status::Idle;  // the status that it leads to, unless it is unwanted
    // What else it does, and the text that the server prints for it. Null: nothing.
    void (TUpdater::*act)(const UpdateMode& mode, const ConsoleLine& line) = nullptr;
    const char* trace = nullptr;
};

// An "OK" must have room for its address. A status without rows waits for nothing, so nothing is
// unwanted in it.
constexpr TUpdater::Answer TUpdater::kAnswers[] = {
    {Status::Connect, Sign::Progress, kFlashIdle, 0, Status::Request, &TUpdater::OnIdle},
    {Status::Connect, Sign::Unwanted},
    {Status::Request, Sign::Progress, "Start WRITE ?", 0, Status::StartData},
    {Status::Request, Sign::Unwanted},
    {Status::Transfer, Sign::Progress, "OK", 11, Status::Transfer, &TUpdater::OnOk},
    {Status::Transfer, Sign::Life, "NG", 0, Status::Transfer, &TUpdater::OnNg},
    {Status::Transfer, Sign::Busy, "Erasing", 0, Status::Transfer},
    {Status::Transfer, Sign::Busy, "WR:", 0, Status::Transfer},
    {Status::Transfer, Sign::Life, "END", 0, Status::Transfer, &TUpdater::OnEnd, "End Recive\n"},
    {Status::Transfer, Sign::Life, "Finished", 0, Status::Finished, nullptr, "Finish Recive\n"},
    {Status::Transfer, Sign::Life, "Failed", 0, Status::Failed, nullptr, "Fail Recive\n"},
    {Status::Transfer, Sign::Unwanted},
};

void TUpdater::GetCSPMessage(const char* message, int length)
{
    TakeAnswer(UpdateMode::Alone(midi.get()), message, length);
}

void TUpdater::GetCSPMessageDiag(TMidiCom* link, TZaurusCom* controller, const char* message,
                                 int length)
{
    TakeAnswer(UpdateMode::InServer(link, controller), message, length);
}

void TUpdater::TakeAnswer(const UpdateMode& mode, const char* message, int length)
{
    const ConsoleLine line(message);
    for (const Answer& answer : kAnswers) {
        const bool isKnown = answer.sign != Sign::Busy || mode.takesBusy;
        if (answer.status == updateStatus && isKnown && length >= answer.shortest &&
            line.BeginsWith(answer.prefix))
            return Apply(answer, mode, line);
    }
}

void TUpdater::Apply(const Answer& answer, const UpdateMode& mode, const ConsoleLine& line)
{
    switch (answer.sign) {
    case Sign::Unwanted: ++errorCounter; return;
    case Sign::Life:
        if (mode.anyAnswerEndsSilence)
            updateCounter = 0;
        break;
    case Sign::Busy: mode.PrintAlone(line.Text()); [[fallthrough]];
    case Sign::Progress:
        errorCounter = 0;
        updateCounter = 0;
        break;
    }
    updateStatus = answer.next;
    if (answer.trace != nullptr)
        mode.PrintInServer(answer.trace);
    if (answer.act != nullptr)
        (this->*answer.act)(mode, line);
}

void TUpdater::OnIdle(const UpdateMode& /*mode*/, const ConsoleLine& /*line*/)
{
    flashModeCounter = 0;
}

// Alone the update goes on where the last block ended, whatever the address. In the server only the
// answer to the last block asks for the next one; an older one is late.
void TUpdater::OnOk(const UpdateMode& mode, const ConsoleLine& line)
{
    mode.PrintAlone(line.Text());
    const std::uint32_t address = line.Address();
    if (!mode.takesAnyOk && (!rows.IsSending() || address != rows.Address()))
        return;
    SendIntelHex(mode.midi, rows.Address(), kWriteBlock);
    ReportProgress(mode, *hexFile, address);
}

// A refusal counts as unwanted. The block is on its way already when the CSP refuses the same place
// again.
void TUpdater::OnNg(const UpdateMode& mode, const ConsoleLine& line)
{
    if (mode.inServer)
        TraceLine("NG Recive ", line.Text());
    ++errorCounter;
    const unsigned long address = line.Address();
    if (address != ngAddress)
        SendIntelHex(mode.midi, address, kWriteBlock);
    ngAddress = address;
}

// No rows are wanted any more, though some may be left. The CSP still has to report how it ended.
void TUpdater::OnEnd(const UpdateMode& /*mode*/, const ConsoleLine& /*line*/)
{
    rows.End();
}
