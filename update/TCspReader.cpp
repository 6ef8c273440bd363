#include "TCspReader.h"

#include <cstddef>
#include <cstring>

#include <unistd.h>

#include "Hex.h"
#include "TSString.h"
#include "Trace.h"
#include "UnitPaths.h"

namespace {

// The parameter flash. Every read covers all of it, whatever range was asked for.
constexpr std::uint32_t kParameterStart = 0x90040000;
constexpr std::uint32_t kParameterEnd = 0x900A0000;
constexpr int kAddressDigits = 8;

constexpr std::uint32_t kBlockSize = 0x1000;     // bytes that the CSP sends for one request
constexpr std::uint32_t kProgressStep = 0x2000;  // bytes between two progress texts
constexpr std::uint32_t kSilentStep = 0x10000;   // no text here but 100%: a base record comes too

constexpr unsigned char kFlashModeGroup[kMidiGroupSize] = {0xBF, 0x00, 0x00, 0x7F};

void Cancel(TMidiCom* midi)
{
    SendLine(midi, "CANCEL :");
}

}  // namespace

TCspReader::TCspReader()
    : hexFile(new THexFile),
      readStart(0),
      readEnd(0),
      fileName(),
      readerStatus(Idle),
      readerCounter(0),
      errorCounter(0),
      flashModeCounter(0),
      lastAddress(0)
{}

TCspReader::~TCspReader()
{
    delete hexFile;
}

void TCspReader::SetReaderParameter(unsigned long start, unsigned long end, const char* file)
{
    readStart = start;
    readEnd = end;
    fileName[0] = '\0';
    const std::size_t length = std::strlen(file);
    if (length < sizeof(fileName))
        std::memcpy(fileName, file, length + 1);
}

void TCspReader::SetReaderStatus(int status)
{
    readerStatus = status;
    ResetCounters();
    hexFile->Reset();
}

int TCspReader::GetReaderStatus() const
{
    return readerStatus;
}

void TCspReader::ClearReaderStatus()
{
    readerStatus = Idle;
    ResetCounters();
}

void TCspReader::IncReaderCounter()
{
    readerCounter += kServerTimeout;
}

int TCspReader::UpdateStatus(TMidiCom* midi, TZaurusCom* zaurus)
{
    Trace("Update Status CSP\n");
    switch (readerStatus) {
    case Connect: StepConnect(midi, zaurus); break;
    case Request:
        if (!StepRequest(midi, zaurus))
            return HasFailed;
        break;
    case StartData: StepStartData(midi); break;
    case Transfer:
        if (!StepTransfer(midi))
            return HasFailed;
        break;
    case Finished: StepFinished(); return IsDone;
    case Failed:
        // The refused record has sent one already. The CSP gets a second one behind whatever it
        // was still sending.
        Cancel(midi);
        return HasFailed;
    default: return GoesOn;
    }
    if (errorCounter > kErrorLimit) {
        Cancel(midi);
        return HasFailed;
    }
    return GoesOn;
}

void TCspReader::GetCSPMessage(TMidiCom* midi, TZaurusCom* zaurus, const char* message,
                               int /*length*/)
{
    const ConsoleLine line(message);
    switch (readerStatus) {
    case Connect: OnConnectAnswer(midi, line); return;
    case Request: OnRequestAnswer(line); return;
    case Transfer: OnRecord(midi, zaurus, line); return;
    default: return;
    }
}

void TCspReader::StepConnect(TMidiCom* midi, TZaurusCom* zaurus)
{
    // A read goes on even if the CSP never said that it is idle. Silence is looked at in every
    // step, since a step that sends may be very far away.
    if (readerCounter > kSilenceLimit)
        EnterStatus(Request);
    if (flashModeCounter % kFlashModeEvery == 0) {
        Trace("Send Flash Mode TCspReader Update\n");
        SendFlashMode(midi, kFlashModeGroup);
        usleep(kFlashModeWait);
        SendLine(midi, "STATUS");
        TellController(zaurus, "Connecting to CSP\n");
        if (errorCounter > kErrorLimit)
            EnterStatus(Request);
    }
    CountFlashMode(flashModeCounter);
}

bool TCspReader::StepRequest(TMidiCom* midi, TZaurusCom* zaurus)
{
    readStart = kParameterStart;
    readEnd = kParameterEnd;
    const TSString request = TSString("READ   :") + UIntToSHex(kParameterStart, kAddressDigits) +
                             ":" + UIntToSHex(kParameterEnd, kAddressDigits) + ":0C";
    SendLine(midi, request.c_str());
    request.Print(true);
    if (readerCounter <= kSilenceLimit)
        return true;
    Cancel(midi);
    TellController(zaurus, "CSP is not connected.\n");
    return false;
}

void TCspReader::StepStartData(TMidiCom* midi)
{
    flashModeCounter = 0;
    SendLine(midi, "NEXT   :");
    readerStatus = Transfer;
    readerCounter = 0;
}

bool TCspReader::StepTransfer(TMidiCom* midi)
{
    if (readerCounter <= kSilenceLimit)
        return true;
    Cancel(midi);
    return false;
}

void TCspReader::StepFinished()
{
    Trace("CSP Update Finished\n");
    hexFile->SaveToFile(fileName[0] == '\0' ? kUnnamedParameterFile : fileName);
}

// Goes on to a status with the counters of silence and of unwanted answers at 0.
void TCspReader::EnterStatus(ConsoleStatus status)
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
}

void TCspReader::OnConnectAnswer(TMidiCom* midi, const ConsoleLine& line)
{
    if (line.BeginsWith("Status:Flash Idle")) {
        readerStatus = Request;
        ResetCounters();
        Trace("Status:Flash Idle\n");
        return;
    }
    // The CSP is in the middle of something: break it off, and ask again with the next step.
    ++errorCounter;
    Cancel(midi);
    flashModeCounter = 0;
    Trace("Canceled\n");
}

void TCspReader::OnRequestAnswer(const ConsoleLine& line)
{
    if (line.BeginsWith("Start READ"))
        EnterStatus(StartData);
    else
        ++errorCounter;
}

void TCspReader::OnRecord(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line)
{
    const int result = hexFile->CheckIntelHex(line.Text());
    if (result > 0) {
        Trace((TSString("Recive ") + line.Text() + "\n").c_str());
        Cancel(midi);
        readerStatus = Failed;
        return;
    }
    if (result < 0) {
        readerStatus = Finished;
        return;
    }
    const std::uint32_t address = hexFile->GetNextAddress();
    if (address % kBlockSize != 0) {
        flashModeCounter = 0;
        return;
    }
    AskForMore(midi, address);
    if (address != lastAddress) {
        Trace((TSString("NEXT   :") + UIntToSHex(address, kAddressDigits) + "\n").c_str());
        lastAddress = address;
    }
    TellProgress(zaurus, address);
}

// Asks for the next block, once for an address: a base record at a 64 KiB boundary leaves the
// address where it is and finds the counter raised.
void TCspReader::AskForMore(TMidiCom* midi, std::uint32_t address)
{
    if (address >= readEnd || address == readStart)
        return;
    if (flashModeCounter % kFlashModeEvery == 0)
        SendLine(midi, "NEXT   :");
    CountFlashMode(flashModeCounter);
}

void TCspReader::TellProgress(TZaurusCom* zaurus, std::uint32_t address) const
{
    const auto start = static_cast<std::uint32_t>(readStart);
    const std::uint32_t size = static_cast<std::uint32_t>(readEnd) - start;
    if (size == 0)
        return;
    const std::uint32_t percent = 100U * (address - start) / size;
    const bool onStep = address % kProgressStep == 0 && address % kSilentStep != 0;
    if (!onStep && percent != 100)
        return;
    TellController(zaurus, (TSString("Reading CSP ") + TSString(percent) + "%\n").c_str());
}
