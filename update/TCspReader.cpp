#include "TCspReader.h"

#include <string_view>
#include <utility>

#include "Console.h"
#include "Hex.h"
#include "HexFormat.h"
#include "HexRecord.h"
#include "TSString.h"
#include "Trace.h"

namespace {

constexpr std::uint32_t kProgressStep = 0x2000;  // bytes between two progress texts
constexpr std::uint32_t kSilentStep = 0x10000;   // base records end here, too: only 100% is sent

// Breaks off what the CSP is doing.
Step GiveUp(TMidiCom* midi)
{
    SendLine(midi, kAskToCancel);
    return Step::Failed;
}

}  // namespace

// A name that doesn't fit isn't cut, since a cut name is another file.
void TCspReader::SetReaderParameter(unsigned long start, unsigned long end, const char* file)
{
    readStart = start;
    readEnd = end;
    const std::string_view name(file);
    const bool fits = name.size() < sizeof(fileName);
    fileName[fits ? name.copy(fileName, name.size()) : 0] = '\0';
}

std::uint32_t TCspReader::GetNextAddress() const
{
    const std::uint32_t next = hexFile->GetNextAddress();
    return next == 0 ? kParameterStart : next;
}

void TCspReader::SetReaderStatus(int status)
{
    readerStatus = status;
    ResetCounters();
    hexFile->Reset();
    wantsData = false;
}

int TCspReader::GetReaderStatus() const
{
    return readerStatus;
}

void TCspReader::ClearReaderStatus()
{
    readerStatus = Status::Idle;
    ResetCounters();
}

void TCspReader::IncReaderCounter()
{
    readerCounter += kServerTimeout;
}

std::string TCspReader::ReceivedText() const
{
    TSStringList& lines = *hexFile->checkedLines;
    std::string text;
    for (lines.First(); lines.HasNext();)
        text += lines.NextString()->c_str();
    return text;
}

int TCspReader::UpdateStatus(TMidiCom* midi, TZaurusCom* zaurus)
{
    Trace("Update Status CSP\n");
    return ToInt(TakeStep(midi, zaurus));
}

struct TCspReader::Answer {
    int status = Status::Idle;  // in which it is understood
    const char* prefix = "";    // the text that the line begins with
    void (TCspReader::*act)(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line) = nullptr;
};

// A status without rows waits for nothing, so nothing is unwanted in it.
constexpr TCspReader::Answer TCspReader::kAnswers[] = {
    {Status::Connect, kFlashIdle, &TCspReader::OnIdle},
    {Status::Connect, "", &TCspReader::OnNotIdle},
    {Status::Request, "Start READ", &TCspReader::OnStart},
    {Status::Request, "", &TCspReader::OnUnwanted},
    {Status::Transfer, "", &TCspReader::OnRecord},
};

void TCspReader::GetCSPMessage(TMidiCom* midi, TZaurusCom* zaurus, const char* message,
                               int /*length*/)
{
    const ConsoleLine line(message);
    for (const Answer& answer : kAnswers) {
        if (answer.status == readerStatus && line.BeginsWith(answer.prefix))
            return (this->*answer.act)(midi, zaurus, line);
    }
}

// The refused record has sent a cancel already. The CSP gets a second one with this step, after
// whatever it was still sending.
Step TCspReader::TakeStep(TMidiCom* midi, TZaurusCom* zaurus)
{
    switch (readerStatus) {
    case Status::Connect: return StepConnect(midi, zaurus);
    case Status::Request: return StepRequest(midi, zaurus);
    case Status::StartData: return StepStartData(midi);
    case Status::Transfer: return StepTransfer(midi);
    case Status::Finished: return StepFinished();
    case Status::Failed: return GiveUp(midi);
    default: return Step::GoesOn;
    }
}

// A read goes on even if the CSP never reported that it is idle. Silence is checked in every step,
// since a step that sends may be very far away.
Step TCspReader::StepConnect(TMidiCom* midi, TZaurusCom* zaurus)
{
    if (IsSilent())
        EnterStatus(Status::Request);
    if (CountToSend(flashModeCounter)) {
        Trace("Send Flash Mode TCspReader Update\n");
        AskForStatus(midi, kReadFlashMode);
        SendToController(zaurus, kConnectingText);
        if (errorCounter > kErrorLimit)
            EnterStatus(Status::Request);
    }
    return EndOfStep(midi);
}

// The request goes out with every step until the CSP answers.
Step TCspReader::StepRequest(TMidiCom* midi, TZaurusCom* zaurus)
{
    readStart = kParameterStart;
    readEnd = kParameterEnd;
    const TSString request = TSString("READ   :") + UIntToSHex(kParameterStart, kAddressDigits) +
                             ":" + UIntToSHex(kParameterEnd, kAddressDigits) + ":0C";
    SendLine(midi, request.c_str());
    request.Print(true);
    if (!IsSilent())
        return EndOfStep(midi);
    const Step result = GiveUp(midi);
    SendToController(zaurus, kNotConnectedText);
    return result;
}

Step TCspReader::StepStartData(TMidiCom* midi)
{
    blockCounter = 0;
    SendLine(midi, kAskNext);
    readerStatus = Status::Transfer;
    readerCounter = 0;
    return EndOfStep(midi);
}

// Records don't end the silence here, so four timeouts in all of the transfer end the read.
Step TCspReader::StepTransfer(TMidiCom* midi)
{
    return IsSilent() ? GiveUp(midi) : EndOfStep(midi);
}

// A write that fails isn't noticed: the read itself has succeeded.
Step TCspReader::StepFinished()
{
    Trace("CSP Update Finished\n");
    hexFile->SaveToFile(fileName[0] == '\0' ? kUnnamedParameterFile : fileName);
    return Step::Done;
}

Step TCspReader::EndOfStep(TMidiCom* midi) const
{
    return errorCounter > kErrorLimit ? GiveUp(midi) : Step::GoesOn;
}

// Goes on to a status with the counters of silence and of unwanted answers at 0.
void TCspReader::EnterStatus(int status)
{
    readerStatus = status;
    readerCounter = 0;
    errorCounter = 0;
}

// A new read starts clean: a flash mode counter left from the last one would keep it from sending.
void TCspReader::ResetCounters()
{
    readerCounter = 0;
    errorCounter = 0;
    flashModeCounter = 0;
    blockCounter = 0;
}

bool TCspReader::IsSilent() const
{
    return readerCounter > kSilenceLimit;
}

void TCspReader::OnIdle(TMidiCom* /*midi*/, TZaurusCom* /*zaurus*/, const ConsoleLine& /*line*/)
{
    readerStatus = Status::Request;
    ResetCounters();
    TraceLine(kFlashIdle, "");
}

// The CSP is in the middle of something: break it off, and ask again with the next step.
void TCspReader::OnNotIdle(TMidiCom* midi, TZaurusCom* /*zaurus*/, const ConsoleLine& /*line*/)
{
    ++errorCounter;
    SendLine(midi, kAskToCancel);
    flashModeCounter = 0;
    Trace("Canceled\n");
}

void TCspReader::OnStart(TMidiCom* /*midi*/, TZaurusCom* /*zaurus*/, const ConsoleLine& /*line*/)
{
    EnterStatus(Status::StartData);
}

void TCspReader::OnUnwanted(TMidiCom* /*midi*/, TZaurusCom* /*zaurus*/, const ConsoleLine& /*line*/)
{
    ++errorCounter;
}

void TCspReader::OnRecord(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line)
{
    if (mustProgress && !TakeProgress(HexRecord(FirstLine(line.Text()))))
        return OnRefused(midi, line);
    switch (hexFile->CheckIntelHex(line.Text())) {
    case THexFile::Accepted: return OnAccepted(midi, zaurus, hexFile->GetNextAddress());
    case THexFile::LastAccepted: readerStatus = Status::Finished; return;
    default: return OnRefused(midi, line);
    }
}

// Notes what the record brings. False when it leaves the read where it is; what THexFile refuses by
// itself counts as progress.
bool TCspReader::TakeProgress(const HexRecord& record)
{
    if (!record.IsComplete())
        return true;
    const bool follows = std::exchange(wantsData, record.Type() == HexRecord::kUpperAddress);
    switch (record.Type()) {
    case HexRecord::kData: return IsNextData(record);
    case HexRecord::kUpperAddress: return !follows && IsNextUpperAddress(record);
    default: return record.IsExact();
    }
}

// That the record begins where the last one ended is THexFile's to check.
bool TCspReader::IsNextData(const HexRecord& record) const
{
    const std::uint32_t left = kParameterEnd - hexFile->GetNextAddress();
    const bool isInside = hexFile->GetNextAddress() >= kParameterStart && record.Count() <= left;
    return record.IsExact() && record.Count() > 0 && isInside;
}

bool TCspReader::IsNextUpperAddress(const HexRecord& record) const
{
    return record.IsExact() && record.Count() == HexRecord::kUpperAddressCount &&
           record.UpperAddress() == GetNextAddress();
}

// Nearly every record ends inside a block, and nothing follows from it.
void TCspReader::OnAccepted(TMidiCom* midi, TZaurusCom* zaurus, std::uint32_t address)
{
    if (address % kReadBlock != 0) {
        blockCounter = 0;
        return;
    }
    AskForMore(midi, address);
    if (address != lastAddress) {
        TraceLine(kAskNext, UIntToSHex(address, kAddressDigits).c_str());
        lastAddress = address;
    }
    ReportProgress(zaurus, address);
}

// Any line that is no record ends the read, an answer that has come too late, too.
void TCspReader::OnRefused(TMidiCom* midi, const ConsoleLine& line)
{
    TraceLine("Recive ", line.Text());
    SendLine(midi, kAskToCancel);
    readerStatus = Status::Failed;
}

// Asks for the next block, once for an address: a base record at a 64 KiB boundary leaves the
// address where it is and finds the counter raised.
void TCspReader::AskForMore(TMidiCom* midi, std::uint32_t address)
{
    if (address >= readEnd || address == readStart)
        return;
    if (CountToSend(blockCounter))
        SendLine(midi, kAskNext);
}

void TCspReader::ReportProgress(TZaurusCom* zaurus, std::uint32_t address) const
{
    const std::uint32_t start = readStart & kAddressMask;
    const std::uint32_t size = (readEnd & kAddressMask) - start;
    if (size == 0)
        return;
    const std::uint32_t percent = 100U * (address - start) / size;
    const bool onStep = address % kProgressStep == 0 && address % kSilentStep != 0;
    if (!onStep && percent != 100)
        return;
    SendToController(zaurus, (TSString("Reading CSP ") + TSString(percent) + "%\n").c_str());
}
