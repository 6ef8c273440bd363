#include "TDiagServer.h"

#include <algorithm>

#include <unistd.h>

#include "Hexadecimal.h"
#include "Language.h"
#include "Log.h"
#include "PciDsp.h"
#include "Reason.h"
#include "Strict.h"
#include "TXmlMan.h"
#include "Text.h"
#include "Trace.h"
#include "UnitPaths.h"

namespace {

constexpr unsigned kPatcherWait = 2;  // seconds that the MIDI Patcher gets once it is connected

// The buffer of the loop serves both links in turn, and a text in it may need its NUL.
constexpr int kBufferSize = TZaurusCom::kMaxMessage + 1;
static_assert(kBufferSize > TMidiCom::kMaxMessage, "a message of the piano fits, too");

constexpr std::size_t kMostReasons = 3;  // lines to the controller about one failure

// A command typed at a terminal.
struct Key {
    char letter = 0;                   // the first of the line
    const MidiGroup* group = nullptr;  // sent after the group for flash mode; null: neither is
    const char* line = nullptr;        // sent to the console; null: none
};
constexpr MidiGroup kAskVersion = {0xBF, 0x51, 0x00, 0x00};
constexpr Key kKeys[] = {
    {'v', &kAskVersion, kAskStatus},
    {'f', &kEnterFlashMode, nullptr},
    {'r', nullptr, "READ   :901A0000:901F0000:10"},
    {'n', nullptr, kAskNext},
    {'c', nullptr, kAskToCancel},
    {'s', nullptr, "RESTART:"},
};

// A message for the controller, forwarded unparsed: its first byte is 0x60 to 0x6F.
bool IsForController(char firstByte)
{
    const unsigned char byte = firstByte;
    return (byte & 0xF0U) == 0x60U;
}

}  // namespace

// Leaks both on purpose: the process ends with the server, and the system frees them.
TDiagServer::~TDiagServer()
{
    static_cast<void>(updater.release());
    static_cast<void>(reader.release());
}

void TDiagServer::SetStrict(Strict* checks, std::uint32_t itsAddress)
{
    strict = checks;
    address = itsAddress;
}

int TDiagServer::Initialize(int port, int connecttype)
{
    zaurus = std::make_unique<TZaurusCom>();
    midi = std::make_unique<TMidiCom>();
    rcserver = std::make_unique<TRCServerCom>();
    zaurus->SetPortNo(port);
    zaurus->SetAddress(address);
    if (strict != nullptr) {
        zaurus->BoundWaits();
        midi->BoundWaits();
    }
    Log("Diag Server Start Now.\n");

    // Nothing stops early: a log that reports every link is worth more than a quick end.
    int result = OpenMidi(connecttype) ? 0 : kNoPatcher;
    sleep(kPatcherWait);
    OpenRCServer();
    OpenPort();

    if (result == 0 && strict != nullptr && zaurus->GetPortDescriptor() < 0)
        result = kNoPort;
    if (result == 0)
        Log("Diag Server Initialize OK\n");
    language = GetIOCLanguage();
    versionReply = false;
    return result;
}

int TDiagServer::Run()
{
    MakeMachines();
    // By default the first read-back has neither a file name nor a range of its own.
    if (strict != nullptr)
        SetReadTarget(kUnnamedParameterFile);
    reader->SetReaderStatus(Status::Connect);

    char buffer[kBufferSize];
    while (true) {
        ReadSet set;
        set.Add(midi->GetMidiDescriptor());
        set.Add(zaurus->GetPortDescriptor());
        set.Add(zaurus->GetZaurusId());
        Trace("Diag Update Status()\n");

        // The set was built before these steps, so a descriptor that one of them lost makes the
        // wait fail once.
        if (StepReader() == Step::Done)
            return 0;
        StepUpdater();

        const int ready = set.Wait(kServerTimeout);
        if (ready == 0)
            OnTimeout();
        if (ready > 0)
            Dispatch(set, buffer);
    }
}

bool TDiagServer::OpenMidi(int connecttype)
{
    const char* failure = ConnectMidi(connecttype);
    if (failure == nullptr) {
        Log("MIDI Patcher is active.\n");
        return true;
    }
    Log("MIDI Patcher is not active.\n");
    Trace(failure);
    return false;
}

// Null, or the trace of what failed.
const char* TDiagServer::ConnectMidi(int connecttype)
{
    midi->Set_connecttype(connecttype);
    if (midi->SetMidiDescriptor(kMidiPatcherSocket) < 0)
        return "MIDI Patcher is not active.\n";
    if (!midi->Connect_i2cserver())
        return "MIDI Patcher is not connected\n";
    return nullptr;
}

// Without an RC Server message boxes go to the controller.
void TDiagServer::OpenRCServer()
{
    const int descriptor = TryTwice([this] { return rcserver->SetRCSDescriptor(kRCServerSocket); });
    if (strict != nullptr)
        rcserver->BoundWaits();
    Log(descriptor < 0 ? "RC Server is not active.\n" : "RC Server is active.\n");
}

void TDiagServer::OpenPort()
{
    if (TryTwice([this] { return zaurus->SetPortDescriptor(); }) < 0)
        Log("Zaurus Socket Port Open Error\n");
}

void TDiagServer::MakeMachines()
{
    updater = std::make_unique<TUpdater>();
    reader = std::make_unique<TCspReader>();
    if (strict != nullptr)
        reader->RequireProgress();
}

// Done when the read-back has succeeded, which ends the server.
Step TDiagServer::StepReader()
{
    const Step result{reader->UpdateStatus(midi.get(), zaurus.get())};
    if (result == Step::GoesOn)
        return Step::GoesOn;
    const std::string problem = strict == nullptr ? "" : SaveReadBack(result);
    const bool isDone = result == Step::Done && problem.empty();
    SendAndLog(isDone ? "CSP Read Success.\n" : "CSP Read Failed.\n");
    if (!problem.empty())
        Explain({problem});
    reader->ClearReaderStatus();
    RebootCsp();
    return isDone ? Step::Done : Step::Failed;
}

// With --strict the reader leaves the saving to its checks. Why there is no new file, or nothing.
std::string TDiagServer::SaveReadBack(Step result)
{
    if (result == Step::Done)
        return strict->SaveReadBack(readTarget, reader->ReceivedText());
    return reader->GetReaderStatus() == Status::Failed
               ? "the CSP didn't send the next record, which begins at " +
                     EightDigits(reader->GetNextAddress())
               : "the CSP didn't answer as it should";
}

// Clearing the status lets the controller's groups through again.
void TDiagServer::StepUpdater()
{
    if (!IsUpdating())
        return;
    const Step result{updater->UpdateStatusDiag(midi.get(), zaurus.get())};
    if (result == Step::GoesOn)
        return;
    SendAndLog(result == Step::Done ? "CSP Update Success.\n" : "CSP Update Failed.\n");
    updater->ClearUpdateStatus();
    if (strict != nullptr)
        strict->gate.TakeUsed();
    RebootCsp();
}

// After a failure, too: the board may still be in flash mode.
void TDiagServer::RebootCsp()
{
    Send("Rebooting CSP...\n");
    Log(kRestartNote);
    const int error = RestartPiano();
    if (strict == nullptr)
        return;
    strict->TakeRestart(error);
    if (error != 0)
        Send((ReasonFor(kPianoPowerDevice, error) + "\n").c_str());
}

// If both are active, only the update's timer advances: it owns the console, so the read-back must
// not time out.
void TDiagServer::OnTimeout()
{
    if (midi->GetMidiDescriptor() < 0)
        ReconnectMidi();
    if (IsUpdating()) {
        updater->IncUpdateCounter();
        Log("CSP Update status Inc.\n");
    } else if (IsReading()) {
        reader->IncReaderCounter();
        Log("CSP Read status Inc.\n");
    }
}

// The MIDI Patcher gets no second connect sequence: it is one for each process.
void TDiagServer::ReconnectMidi()
{
    Log("Trying to Connect MIDI Patcher...\n");
    const bool connected = midi->SetMidiDescriptor(kMidiPatcherSocket) >= 0;
    Log(connected ? "Connected to MIDI Patcher\n" : "MIDI Patcher is dead.\n");
}

// The descriptor of each link is fetched right before its test. A controller that is accepted
// here is read in a later pass: it may get the number of a descriptor just closed, which the set
// still calls readable, and a read of it would wait for as long as the controller is silent.
void TDiagServer::Dispatch(const ReadSet& set, char* buffer)
{
    if (set.Has(midi->GetMidiDescriptor()))
        ProcessMidi(buffer);
    if (set.Has(zaurus->GetPortDescriptor()))
        zaurus->AcceptZaurus();
    else if (set.Has(zaurus->GetZaurusId()))
        ProcessZaurus(buffer);
}

void TDiagServer::ProcessMidi(char* buffer)
{
    const int count = midi->ReadMessage(buffer);
    if (count <= 0)
        return;
    // Looked at first, so that such a message reaches the controller whatever is active.
    if (IsForController(buffer[0])) {
        zaurus->WriteMessage(buffer, count);
        return;
    }

    char* lines[TMidiCom::kMaxLines];
    const int lineCount = midi->ToConsole2(buffer, count, lines, TMidiCom::kMaxLines);
    for (int i = 0; i < lineCount; ++i)
        TakeConsoleLine(lines[i]);
}

// To the state machine that is active. With none, message boxes go to the RC Server and everything
// else, also a box that it doesn't take, to the controller.
void TDiagServer::TakeConsoleLine(const char* line)
{
    if (IsUpdating())
        updater->GetCSPMessageDiag(midi.get(), zaurus.get(), line, TextLength(line));
    else if (IsReading())
        reader->GetCSPMessage(midi.get(), zaurus.get(), line, TextLength(line));
    else if (!TXmlMan().ParceXML(rcserver.get(), line, language))
        Send(line);
}

void TDiagServer::ProcessKeyboard(char* buffer)
{
    const ssize_t count = read(STDIN_FILENO, buffer, kBufferSize - 1);
    // A failed read counts as an empty line.
    char* const end = buffer + std::max<ssize_t>(count, 0);
    *std::find(buffer, end, '\n') = '\0';

    for (const Key& key : kKeys) {
        if (buffer[0] != key.letter)
            continue;
        if (key.group != nullptr) {
            midi->WriteMidi(0, kWriteFlashMode.data());
            midi->WriteMidi(0, key.group->data());
        }
        if (key.line != nullptr)
            SendLine(midi.get(), key.line);
    }
    TraceLine("KEYBOARD: ", buffer);
    Send(buffer);
}

void TDiagServer::Log(const char* text) const
{
    // A lost entry is not a failure.
    static_cast<void>(AddLogFile(kServerLog, text, strict == nullptr ? kNoLimit : kMostOfLog));
}

void TDiagServer::Send(const char* text)
{
    SendToController(zaurus.get(), text);
}

void TDiagServer::SendAndLog(const char* text)
{
    Send(text);
    Log(text);
}

// With --strict: why something has failed. The log lists all reasons, the controller gets three
// lines.
void TDiagServer::Explain(const std::vector<std::string>& reasons)
{
    strict->report.Add(reasons);
    const std::size_t sent = reasons.size() > kMostReasons ? kMostReasons - 1 : reasons.size();
    for (std::size_t i = 0; i < sent; ++i)
        Send((reasons[i] + "\n").c_str());
    if (sent < reasons.size())
        Send(("and more in the log: " + std::to_string(reasons.size() - sent) + "\n").c_str());
}
