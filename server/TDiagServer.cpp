#include "TDiagServer.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include <sys/mount.h>
#include <unistd.h>

#include "Compress.h"
#include "FileTools.h"
#include "Language.h"
#include "Log.h"
#include "PciDsp.h"
#include "TXmlMan.h"
#include "Trace.h"
#include "UnitPaths.h"

namespace {

constexpr int kNoPatcher = -3;
constexpr unsigned kPatcherWait = 2;  // seconds that the MIDI Patcher gets behind its opening
constexpr unsigned kRetryWait = 5;    // seconds before the second attempt at a link
constexpr int kBufferSize = TZaurusCom::kMaxMessage + 1;
constexpr int kReleaseLineSize = 1024;

constexpr int kGroupSize = 4;
constexpr unsigned char kAlternateGroup = 'l';

// Commands of the controller, their four bytes in the order of the wire.
enum Command : std::uint32_t {
    ShowUpdateFileCommand = 0xDFDF00AA,
    StartUpdateCommand = 0xDFDF00BB,
    ReadParametersCommand = 0xDFDF00C0,
    ShowParameterFileCommand = 0xDFDF00C1,
    StartParameterUpdateCommand = 0xDFDF00C2,
    CopyToMediaCommand = 0xDFDF00C3,
    CopyFromMediaCommand = 0xDFDF00C4,
    VersionCommand = 0xDFDFDFDF,
    VersionRepliesOnCommand = 0xDFDFDFE0,
    VersionRepliesOffCommand = 0xDFDFDFE1,
};

constexpr unsigned long kReadStart = 0x90170000;
constexpr unsigned long kReadEnd = 0x90200000;

constexpr char kFileSystem[] = "vfat";
constexpr char kMountOptions[] = "iocharset=sjis,codepage=932";
constexpr unsigned long kWriteFlags = MS_MGC_VAL | MS_NOSUID | MS_NOEXEC;
constexpr unsigned long kReadFlags = kWriteFlags | MS_RDONLY;

// A command typed at a terminal.
struct Key {
    char letter;
    const unsigned char* group;
    const char* line;
};
constexpr unsigned char kKeyFlashMode[] = {0xBF, 0x00, 0x7F, 0x00};
constexpr unsigned char kKeyVersion[] = {0xBF, 0x51, 0x00, 0x00};
constexpr unsigned char kKeyFlash[] = {0xBF, 0x66, 0x01, 0x00};
constexpr Key kKeys[] = {
    {'v', kKeyVersion, "STATUS"},
    {'f', kKeyFlash, nullptr},
    {'r', nullptr, "READ   :901A0000:901F0000:10"},
    {'n', nullptr, "NEXT   :"},
    {'c', nullptr, "CANCEL :"},
    {'s', nullptr, "RESTART:"},
};

void LogText(const char* text)
{
    AddLogFile(kServerLog, text);
}

std::uint32_t CommandWord(const unsigned char* group)
{
    std::uint32_t word = 0;
    for (int i = 0; i < kGroupSize; ++i)
        word = word << 8U | group[i];
    return word;
}

int TextLength(const char* text)
{
    return static_cast<int>(std::strlen(text));
}

// A message for the controller as it is, which no one here looks into: its first byte is 6n.
bool IsForController(const char* message)
{
    constexpr unsigned kHighBits = 4;
    constexpr unsigned kForController = 6;
    return static_cast<unsigned char>(message[0]) >> kHighBits == kForController;
}

enum CopyResult {
    Copied = 0,
    NoParameterFile = -1,
    NotCompressed = -2,
    NoRoom = -3,
    NotCopied = -4,
    NoMedium = -5,
};

const char* CopyText(int result)
{
    switch (result) {
    case Copied: return "Copy Success.\n";
    case NoParameterFile: return "Parameter file is not exists.\n";
    case NotCompressed: return "Binary file error.\n";
    case NoRoom: return "Free Disk space error.\n";
    case NoMedium: return "Floppy in not inserted.\n";
    case NotCopied:
    default: return "Copy error.\n";
    }
}

}  // namespace

TDiagServer::TDiagServer()
    : language(0),
      versionReply(false),
      zaurus(nullptr),
      midi(nullptr),
      rcserver(nullptr),
      updater(nullptr),
      reader(nullptr)
{}

TDiagServer::~TDiagServer()
{
    delete rcserver;
    delete midi;
    delete zaurus;
}

int TDiagServer::Initialize(int port, int connecttype)
{
    zaurus = new TZaurusCom;
    midi = new TMidiCom;
    rcserver = new TRCServerCom;
    zaurus->SetPortNo(port);
    LogText("Diag Server Start Now.\n");

    const int result = OpenMidi(connecttype) ? 0 : kNoPatcher;
    sleep(kPatcherWait);
    OpenRCServer();
    OpenPort();

    if (result == 0)
        LogText("Diag Server Initialize OK\n");
    language = GetIOCLanguage();
    versionReply = false;
    return result;
}

int TDiagServer::Run()
{
    StartFirstRead();

    char buffer[kBufferSize];
    while (true) {
        ReadSet set;
        set.Add(midi->GetMidiDescriptor());
        set.Add(zaurus->GetPortDescriptor());
        set.Add(zaurus->GetZaurusId());
        Trace("Diag Update Status()\n");

        // The set was built before these steps, so a descriptor that one of them lost makes the
        // wait fail once.
        if (!StepReader())
            return 0;
        StepUpdater();

        const int ready = set.Wait(kServerTimeout);
        if (ready == 0)
            OnTimeout();
        if (ready > 0)
            Dispatch(set, buffer);
    }
}

// The machines live until the process ends.
void TDiagServer::StartFirstRead()
{
    updater = new TUpdater;
    reader = new TCspReader;
    reader->SetReaderStatus(Connect);
}

bool TDiagServer::OpenMidi(int connecttype)
{
    midi->Set_connecttype(connecttype);
    const char* failure = nullptr;
    if (midi->SetMidiDescriptor(kMidiPatcherSocket) < 0)
        failure = "MIDI Patcher is not active.\n";
    else if (!midi->Connect_i2cserver())
        failure = "MIDI Patcher is not connected\n";

    LogText(failure == nullptr ? "MIDI Patcher is active.\n" : "MIDI Patcher is not active.\n");
    if (failure != nullptr)
        Trace(failure);
    return failure == nullptr;
}

void TDiagServer::OpenRCServer()
{
    int descriptor = rcserver->SetRCSDescriptor(kRCServerSocket);
    if (descriptor < 0) {
        sleep(kRetryWait);
        descriptor = rcserver->SetRCSDescriptor(kRCServerSocket);
    }
    LogText(descriptor < 0 ? "RC Server is not active.\n" : "RC Server is active.\n");
}

void TDiagServer::OpenPort()
{
    if (zaurus->SetPortDescriptor() >= 0)
        return;
    sleep(kRetryWait);
    if (zaurus->SetPortDescriptor() < 0)
        LogText("Zaurus Socket Port Open Error\n");
}

// Steps the read-back. False when it has succeeded, which ends the server.
bool TDiagServer::StepReader()
{
    const int result = reader->UpdateStatus(midi, zaurus);
    if (result > IsDone)
        return true;
    TellAndLog(result == IsDone ? "CSP Read Success.\n" : "CSP Read Failed.\n");
    reader->ClearReaderStatus();
    RebootCsp();
    return result != IsDone;
}

void TDiagServer::StepUpdater()
{
    if (!IsUpdating())
        return;
    const int result = updater->UpdateStatusDiag(midi, zaurus);
    if (result > IsDone)
        return;
    TellAndLog(result == IsDone ? "CSP Update Success.\n" : "CSP Update Failed.\n");
    updater->ClearUpdateStatus();
    RebootCsp();
}

void TDiagServer::RebootCsp()
{
    Tell("Rebooting CSP...\n");
    LogText("Rebooting CSP...5sec\n");
    RestartPiano();
}

void TDiagServer::OnTimeout()
{
    if (midi->GetMidiDescriptor() < 0)
        ReconnectMidi();
    if (IsUpdating()) {
        updater->IncUpdateCounter();
        LogText("CSP Update status Inc.\n");
    } else if (IsReading()) {
        reader->IncReaderCounter();
        LogText("CSP Read status Inc.\n");
    }
}

void TDiagServer::ReconnectMidi()
{
    LogText("Trying to Connect MIDI Patcher...\n");
    const bool connected = midi->SetMidiDescriptor(kMidiPatcherSocket) >= 0;
    LogText(connected ? "Connected to MIDI Patcher\n" : "MIDI Patcher is dead.\n");
}

// Each link is asked for its descriptor at the moment of the test. A controller that is accepted
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

// Before Run there are no state machines.
bool TDiagServer::IsUpdating() const
{
    return updater != nullptr && updater->GetUpdateStatus() >= 0;
}

bool TDiagServer::IsReading() const
{
    return reader != nullptr && reader->GetReaderStatus() >= 0;
}

void TDiagServer::ProcessMidi(char* buffer)
{
    const int count = midi->ReadMessage(buffer);
    if (count <= 0)
        return;
    if (IsForController(buffer)) {
        zaurus->WriteMessage(buffer, count);
        return;
    }

    char* lines[TMidiCom::kMaxLines];
    const int lineCount = midi->ToConsole2(buffer, count, lines, TMidiCom::kMaxLines);
    if (IsUpdating()) {
        for (int i = 0; i < lineCount; ++i)
            updater->GetCSPMessageDiag(midi, zaurus, lines[i], TextLength(lines[i]));
    } else if (IsReading()) {
        for (int i = 0; i < lineCount; ++i)
            reader->GetCSPMessage(midi, zaurus, lines[i], TextLength(lines[i]));
    } else {
        PassConsoleLines(lines, lineCount);
    }
}

// Message boxes go to the RC Server, everything else to the controller.
void TDiagServer::PassConsoleLines(char* const* lines, int count)
{
    auto* filter = new TXmlMan;
    for (int i = 0; i < count; ++i) {
        if (!filter->ParceXML(rcserver, lines[i], language))
            Tell(lines[i]);
    }
    delete filter;
}

void TDiagServer::ProcessKeyboard(char* buffer)
{
    const ssize_t count = read(STDIN_FILENO, buffer, kBufferSize - 1);
    buffer[count < 0 ? 0 : count] = '\0';
    buffer[std::strcspn(buffer, "\n")] = '\0';

    for (const Key& key : kKeys) {
        if (buffer[0] != key.letter)
            continue;
        if (key.group != nullptr) {
            midi->WriteMidi(0, kKeyFlashMode);
            midi->WriteMidi(0, key.group);
        }
        if (key.line != nullptr)
            SendLine(midi, key.line);
    }
    Trace((TSString("KEYBOARD: ") + buffer + "\n").c_str());
    Tell(buffer);
}

void TDiagServer::ProcessZaurus(char* buffer)
{
    const int count = zaurus->ReadMessage(buffer);
    for (int at = 0; at + kGroupSize <= count; at += kGroupSize) {
        // Asked before each group: a command that starts a state machine shuts out what follows it.
        if (IsUpdating() || IsReading())
            continue;
        const auto* group = reinterpret_cast<const unsigned char*>(buffer + at);
        if (group[0] == kAlternateGroup)
            midi->WriteMidi(1, group);
        else if (!DoCommand(group))
            midi->WriteMidi(0, group);
    }
}

// False when the group is no command and belongs to the piano.
bool TDiagServer::DoCommand(const unsigned char* group)
{
    switch (CommandWord(group)) {
    case ShowUpdateFileCommand: ShowUpdateFile(); return true;
    case StartUpdateCommand:
        StartUpdate("Start CSP Update.\n", "Cannot Execute CSP Update.\n");
        return true;
    case ReadParametersCommand: StartReading(); return true;
    case ShowParameterFileCommand: ShowParameterFile(); return true;
    case StartParameterUpdateCommand:
        StartUpdate("Start CSP Parameter Update.\n", "Cannot execute Parameter Update.\n");
        return true;
    case CopyToMediaCommand: CopyParameters(true); return true;
    case CopyFromMediaCommand: CopyParameters(false); return true;
    case VersionCommand: ReplyVersion(); return true;
    case VersionRepliesOnCommand: versionReply = true; return true;
    case VersionRepliesOffCommand: versionReply = false; return true;
    default: return false;
    }
}

void TDiagServer::ReplyVersion()
{
    if (versionReply) {
        SendIOVersion(kReleaseFile);
        return;
    }
    Tell("KVT : Update the Service Center.\n");
    LogText("Update the Service Center.\n");
}

bool TDiagServer::SendIOVersion(const char* path)
{
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr)
        return false;
    char line[kReleaseLineSize] = {};
    const bool hasLine = std::fgets(line, sizeof(line), file) != nullptr;
    std::fclose(file);
    if (hasLine) {
        LogText(line);
        Tell(line);
    }
    return true;
}

void TDiagServer::ShowUpdateFile()
{
    char version[TUpdater::kTextSize] = {};
    if (updater->SearchUpdateHex(version) < 0) {
        TellAndLog("Update File is not exsit.\n");
        return;
    }
    Tell(" \n");
    Tell("[ System version: Update File ]\n");
    TellAndLog((TSString(version) + "\n").c_str());
}

void TDiagServer::ShowParameterFile()
{
    char stamp[TUpdater::kTextSize] = {};
    if (updater->SearchParameterHex(stamp) < 0) {
        TellAndLog("Parameter File is not exsit.\n");
        return;
    }
    Tell("[ Parameter Back Up File ]\n");
    TellAndLog((TSString("CSP Parameter : ") + stamp + "\n").c_str());
}

// Which file the updater holds depends on the search that came last.
void TDiagServer::StartUpdate(const char* started, const char* refused)
{
    if (updater->SetUpdateStatus(Connect))
        LogText(started);
    else
        TellAndLog(refused);
}

void TDiagServer::StartReading()
{
    reader->SetReaderParameter(kReadStart, kReadEnd, kParameterFile);
    reader->SetReaderStatus(Connect);
    LogText("Start Reading CSP Parameters\n");
}

void TDiagServer::CopyParameters(bool toMedia)
{
    TellAndLog(toMedia ? "Copying CSP Parameters...HD -> FD\n"
                       : "Copying CSP Parameters...FD -> HD\n");
    TellAndLog(CopyText(CopyParameterFile(toMedia)));
}

int TDiagServer::CopyParameterFile(bool toMedia)
{
    // What can be unmounted tells where the medium stands.
    const char* mountPoint = kFloppy;
    if (umount(kFloppy) < 0) {
        if (umount(kUsb) < 0)
            return NoMedium;
        mountPoint = kUsb;
    }
    const TSString directory = TSString(mountPoint) + "/";
    return toMedia ? CopyToMedium(directory) : CopyFromMedium(directory);
}

int TDiagServer::CopyToMedium(const TSString& mountPoint)
{
    if (mount(kMediumDevice, mountPoint.c_str(), kFileSystem, kWriteFlags, kMountOptions) < 0)
        return NotCopied;
    if (!FileExists(kParameterFile))
        return NoParameterFile;
    if (!Compress(kParameterFile, kCompressedParameterFile))
        return NotCompressed;
    if (!CheckDiskFree(mountPoint.c_str(), kCompressedParameterFile))
        return NoRoom;

    const TSString target = mountPoint + kMediumParameterFile;
    if (FileExists(target.c_str()))
        DeleteFile(target.c_str());
    if (CopyFile(kCompressedParameterFile, target.c_str()) != 0)
        return NotCopied;
    sync();
    return Copied;
}

int TDiagServer::CopyFromMedium(const TSString& mountPoint)
{
    if (mount(kMediumDevice, mountPoint.c_str(), kFileSystem, kReadFlags, kMountOptions) < 0)
        return NotCopied;
    const TSString source = mountPoint + kMediumParameterFile;
    if (!FileExists(source.c_str()))
        return NoParameterFile;
    return Decompress(source.c_str(), kParameterFile) ? Copied : NotCopied;
}

void TDiagServer::Tell(const char* text)
{
    TellController(zaurus, text);
}

void TDiagServer::TellAndLog(const char* text)
{
    Tell(text);
    LogText(text);
}
