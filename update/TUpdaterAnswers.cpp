// What the answers of the CSP do to an update. Where the two modes differ, the rule of the server
// follows that of update mode.

#include "TUpdater.h"

#include "HexFormat.h"
#include "Trace.h"

struct TUpdater::Answer {
    std::string_view prefix;    // the text that the line begins with
    int shortest = 0;           // characters of the line, its CR LF included
    int status = Status::Idle;  // in which it is understood
    Action alone = nullptr;     // in update mode
    Action inServer = nullptr;  // null where the server doesn't understand it
};

// An "OK" without room for an address is ignored.
constexpr TUpdater::Answer TUpdater::kAnswers[] = {
    {kFlashIdle, 0, Status::Connect, &TUpdater::OnIdle, &TUpdater::OnIdle},
    {"Start WRITE ?", 0, Status::Request, &TUpdater::OnReady, &TUpdater::OnReady},
    {"OK", 11, Status::Transfer, &TUpdater::OnOk, &TUpdater::OnOkDiag},
    {"NG", 0, Status::Transfer, &TUpdater::OnNg, &TUpdater::OnNgDiag},
    {"Erasing", 0, Status::Transfer, &TUpdater::OnAlive, nullptr},
    {"WR:", 0, Status::Transfer, &TUpdater::OnAlive, nullptr},
    {"END", 0, Status::Transfer, &TUpdater::OnEnd, &TUpdater::OnEndDiag},
    {"Finished", 0, Status::Transfer, &TUpdater::OnFinished, &TUpdater::OnFinishedDiag},
    {"Failed", 0, Status::Transfer, &TUpdater::OnFailed, &TUpdater::OnFailedDiag},
};

void TUpdater::GetCSPMessage(const char* message, int length)
{
    TakeAnswer({false, midi.get(), nullptr}, message, length);
}

void TUpdater::GetCSPMessageDiag(TMidiCom* link, TZaurusCom* controller, const char* message,
                                 int length)
{
    TakeAnswer({true, link, controller}, message, length);
}

// A line counts as unwanted where an answer is waited for, and nowhere else.
void TUpdater::TakeAnswer(const Setting& setting, const char* message, int length)
{
    const ConsoleLine line(message);
    bool isWaiting = false;
    for (const Answer& answer : kAnswers) {
        if (answer.status != updateStatus)
            continue;
        isWaiting = true;
        const Action act = setting.inServer ? answer.inServer : answer.alone;
        if (act != nullptr && length >= answer.shortest && line.BeginsWith(answer.prefix))
            return (this->*act)(setting, line);
    }
    if (isWaiting)
        ++errorCounter;
}

void TUpdater::OnIdle(const Setting& /*setting*/, const ConsoleLine& /*line*/)
{
    EnterStatus(Status::Request);
    errorCounter = 0;
    flashModeCounter = 0;
}

void TUpdater::OnReady(const Setting& /*setting*/, const ConsoleLine& /*line*/)
{
    EnterStatus(Status::StartData);
    errorCounter = 0;
}

// Goes on where the last block ended, whatever the address.
void TUpdater::OnOk(const Setting& setting, const ConsoleLine& line)
{
    OnAlive(setting, line);
    SendIntelHex(setting.midi, rows.Address(), kWriteBlock);
}

// Only the answer to the last block asks for the next one; an older one is late.
void TUpdater::OnOkDiag(const Setting& setting, const ConsoleLine& line)
{
    errorCounter = 0;
    updateCounter = 0;
    const std::uint32_t address = line.Address();
    if (!rows.IsSending() || address != rows.Address())
        return;
    SendIntelHex(setting.midi, rows.Address(), kWriteBlock);
    ReportProgress(setting.zaurus, address);
}

void TUpdater::OnNg(const Setting& setting, const ConsoleLine& line)
{
    updateCounter = 0;
    SendRefused(setting.midi, line.Address());
}

void TUpdater::OnNgDiag(const Setting& setting, const ConsoleLine& line)
{
    TraceLine("NG Recive ", line.Text());
    SendRefused(setting.midi, line.Address());
}

// The CSP is busy; its line is printed as received.
void TUpdater::OnAlive(const Setting& /*setting*/, const ConsoleLine& line)
{
    errorCounter = 0;
    updateCounter = 0;
    Trace(line.Text());
}

// No rows are wanted any more, though some may be left. The CSP still has to report how it ended.
void TUpdater::OnEnd(const Setting& /*setting*/, const ConsoleLine& /*line*/)
{
    rows.End();
    updateCounter = 0;
}

void TUpdater::OnEndDiag(const Setting& /*setting*/, const ConsoleLine& /*line*/)
{
    rows.End();
    Trace("End Recive\n");
}

void TUpdater::OnFinished(const Setting& /*setting*/, const ConsoleLine& /*line*/)
{
    EnterStatus(Status::Finished);
}

void TUpdater::OnFinishedDiag(const Setting& /*setting*/, const ConsoleLine& /*line*/)
{
    updateStatus = Status::Finished;
    Trace("Finish Recive\n");
}

void TUpdater::OnFailed(const Setting& /*setting*/, const ConsoleLine& /*line*/)
{
    EnterStatus(Status::Failed);
}

void TUpdater::OnFailedDiag(const Setting& /*setting*/, const ConsoleLine& /*line*/)
{
    updateStatus = Status::Failed;
    Trace("Fail Recive\n");
}

// A refusal counts as unwanted. The block is on its way already when the CSP refuses the same place
// again.
void TUpdater::SendRefused(TMidiCom* link, unsigned long address)
{
    ++errorCounter;
    if (address != ngAddress)
        SendIntelHex(link, address, kWriteBlock);
    ngAddress = address;
}

// Only even percentages are worth a text. An image without data has none.
void TUpdater::ReportProgress(TZaurusCom* controller, std::uint32_t address) const
{
    const std::uint32_t size = hexFile->endAddress - hexFile->startAddress;
    if (size == 0)
        return;
    const std::uint32_t percent = 100U * (address - hexFile->startAddress) / size;
    if (percent % 2 != 0)
        return;
    SendToController(controller, (TSString("Sending Data ") + TSString(percent) + "%\n").c_str());
}
