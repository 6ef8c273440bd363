#include "TUpdater.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

#include "Compress.h"
#include "FileTools.h"
#include "HexFormat.h"
#include "Log.h"
#include "Path.h"
#include "PciDsp.h"
#include "ReadSet.h"
#include "TSString.h"
#include "Trace.h"
#include "UnitPaths.h"

namespace {

constexpr int kLogLinesKept = 50;

constexpr int kYearBase = 1900;  // what a tm's year counts from

constexpr int kNoFile = -1;
constexpr int kNoPatcher = -3;
constexpr unsigned kRetryWait = 5;  // seconds before the second attempt at the MIDI Patcher
constexpr int kPassWait = 1;        // seconds of one wait in update mode
constexpr std::size_t kReceiveSize = 8200;
static_assert(kReceiveSize >= TMidiCom::kMaxMessage, "a message must fit");

constexpr int kShortestOkAbove = 10;  // an "OK" carries an address, so it is longer than this

constexpr unsigned char kFlashModeGroup[kMidiGroupSize] = {0xBF, 0x00, 0x7F, 0x00};

// Where a firmware file is looked for, the first that exists decides.
struct UpdateSource {
    const char* path;
    bool compressed;
};
constexpr UpdateSource kUpdateSources[] = {
    {kUsbFirmware, false},         {kUsbCompressedFirmware, true},    {kCdFirmware, false},
    {kCdCompressedFirmware, true}, {kFloppyCompressedFirmware, true},
};

void LogText(const char* text)
{
    AddLogFile(kUpdateLog, text);
}

void PrintAndLog(const char* text)
{
    Trace(text);
    LogText(text);
}

}  // namespace

TUpdater::TUpdater()
    : zaurus(nullptr),
      midi(nullptr),
      hexFile(nullptr),
      renameFile(false),
      hexFileName(),
      upperAddress(0),
      lineIndex(0),
      sending(false),
      retryCount(0),
      sendedAddress(0),
      ngAddress(0),
      updateStatus(Idle),
      updateCounter(0),
      errorCounter(0),
      flashModeCounter(0)
{}

TUpdater::~TUpdater()
{
    delete hexFile;
    delete midi;
    delete zaurus;
}

int TUpdater::Initialize(bool rename, int port, const char* fileName, int connecttype)
{
    zaurus = new TZaurusCom;
    midi = new TMidiCom;
    hexFile = new THexFile;
    renameFile = rename;
    zaurus->SetPortNo(port);
    const bool nameFits = StoreFileName(fileName);

    ResetLogFile(kUpdateLog, kLogLinesKept);
    LogText("CSP Updater Start Now.\n");
    if (!nameFits || !hexFile->LoadFromFile(hexFileName)) {
        Trace("No Update File!\n");
        return kNoFile;
    }
    const TSString version = TSString("CSP File Version: ") + hexFile->versionText + "\n";
    version.Print(false);
    LogText(version.c_str());

    midi->Set_connecttype(connecttype);
    const int result = OpenMidi() ? 0 : kNoPatcher;
    LogText(PciDsp_setPiano(1) < 0 ? "Open PciDsp - NG\n" : "Open PciDsp - OK\n");
    EnterStatus(Connect);
    retryCount = 0;

    if (result < 0) {
        Trace((TSString("Error:") + TSString(result) + "\n").c_str());
        LogText((TSString("Update Error No.") + TSString(result) + "\n").c_str());
        sleep(kRetryWait);
        return result;
    }
    LogText("CSP Updater Initialize - OK\n");
    return 0;
}

int TUpdater::Run()
{
    char buffer[kReceiveSize];
    while (true) {
        ReadSet set;
        set.Add(midi->GetMidiDescriptor());
        const int result = UpdateStatus();
        if (result <= IsDone) {
            LogText("Rebooting CSP...5sec\n");
            RestartPiano();
            return result;
        }
        const int ready = set.Wait(kPassWait);
        if (ready == 0) {
            ++updateCounter;
            Trace((TSString("Update Counter Inc 1+ ") + TSString(updateCounter) + "\n").c_str());
        }
        if (ready > 0 && set.Has(midi->GetMidiDescriptor()))
            ReadAnswers(buffer);
    }
}

bool TUpdater::SetUpdateStatus(int status)
{
    if (hexFile == nullptr)
        return false;
    updateStatus = status;
    updateCounter = 0;
    return true;
}

int TUpdater::GetUpdateStatus() const
{
    return updateStatus;
}

void TUpdater::ClearUpdateStatus()
{
    DropImage();
    EnterStatus(Idle);
}

void TUpdater::IncUpdateCounter()
{
    updateCounter += kServerTimeout;
    Trace((TSString("Update Counter Inc 10+ ") + TSString(updateCounter) + "\n").c_str());
}

int TUpdater::UpdateStatus()
{
    switch (updateStatus) {
    case Connect: StepConnect(); break;
    case Request:
        if (!StepRequest())
            return HasFailed;
        break;
    case StartData: StepStartData(); break;
    case Transfer:
        if (!StepTransfer())
            return HasFailed;
        break;
    case Finished: StepFinished(); return IsDone;
    case Failed: return StepFailed();
    default: break;
    }
    if (errorCounter > kErrorLimit) {
        PrintAndLog("Piano Comunication Error !\n");
        return HasFailed;
    }
    return GoesOn;
}

int TUpdater::UpdateStatusDiag(TMidiCom* link, TZaurusCom* controller)
{
    Trace("Update Status APE\n");
    const bool silent = updateCounter > kSilenceLimit;
    switch (updateStatus) {
    case Connect:
        SendFlashMode(link, kFlashModeGroup);
        SendLine(link, "STATUS");
        TellController(controller, "Connecting to CSP\n");
        if (silent)
            EnterStatus(Request);
        break;
    case Request:
        AskForWrite(link);
        if (silent) {
            TellController(controller, "CSP is not connected.\n");
            return HasFailed;
        }
        break;
    case StartData: BeginData(link); break;
    case Transfer:
        if (silent)
            return HasFailed;
        break;
    case Finished: return IsDone;
    case Failed: return HasFailed;
    default: break;
    }
    return errorCounter > kErrorLimit ? HasFailed : GoesOn;
}

void TUpdater::SendIntelHex(TMidiCom* link, unsigned long address, int blockSize)
{
    if (hexFile == nullptr || blockSize < 1)
        return;
    if (address != sendedAddress)
        Seek(static_cast<std::uint32_t>(address));

    const auto block = static_cast<unsigned long>(blockSize);
    while (lineIndex < hexFile->lineCount) {
        SendRowWithItsBase(link);
        if (sendedAddress % block == 0)
            break;
    }
    if (lineIndex >= hexFile->lineCount)
        sending = false;
}

void TUpdater::GetCSPMessage(const char* message, int length)
{
    OnAnswer({false, midi, nullptr}, message, length);
}

void TUpdater::GetCSPMessageDiag(TMidiCom* link, TZaurusCom* controller, const char* message,
                                 int length)
{
    OnAnswer({true, link, controller}, message, length);
}

int TUpdater::SearchUpdateHex(char* version)
{
    for (const UpdateSource& source : kUpdateSources) {
        if (!FileExists(source.path))
            continue;
        return source.compressed ? ExpandAndLoad(source.path, version)
                                 : LoadIntelHex(source.path, version);
    }
    return -1;
}

int TUpdater::SearchParameterHex(char* stamp)
{
    if (!FileExists(kParameterFile))
        return -1;
    struct stat file = {};
    tm time = {};
    if (stat(kParameterFile, &file) == 0 && gmtime_r(&file.st_mtime, &time) != nullptr)
        std::snprintf(stamp, kTextSize, "(%d/%d/%d/%02d:%02d)", time.tm_year + kYearBase,
                      time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min);
    return LoadIntelHex(kParameterFile, nullptr);
}

int TUpdater::LoadIntelHex(const char* path, char* version)
{
    DropImage();
    updateStatus = Idle;
    auto* loaded = new THexFile;
    if (!StoreFileName(path) || !loaded->LoadFromFile(hexFileName)) {
        delete loaded;
        return -1;
    }
    hexFile = loaded;
    if (version != nullptr)
        std::memcpy(version, hexFile->versionText, sizeof(hexFile->versionText));
    updateCounter = 0;
    return 0;
}

// A path that doesn't fit isn't cut, since a cut path names another file: the name is then empty.
bool TUpdater::StoreFileName(const char* path)
{
    const bool fits = std::strlen(path) < sizeof(hexFileName);
    const char* const name = fits ? path : "";
    std::memmove(hexFileName, name, std::strlen(name) + 1);
    return fits;
}

bool TUpdater::OpenMidi()
{
    if (midi->SetMidiDescriptor(kMidiPatcherSocket) >= 0) {
        if (midi->Connect_i2cserver()) {
            LogText("Open MIDI Patcher - OK1\n");
            return true;
        }
        LogText("Open MIDI Patcher - NG1\n");
        Trace("Connect i2c error2\n");
        return false;
    }

    LogText("Open MIDI Patcher - NG1\n");
    sleep(kRetryWait);
    if (midi->SetMidiDescriptor(kMidiPatcherSocket) < 0) {
        LogText("Open MIDI Patcher - NG2\n");
        Trace("Open i2c error\n");
        return false;
    }
    if (midi->Connect_i2cserver()) {
        LogText("Open MIDI Patcher - OK2\n");
        return true;
    }
    LogText("Open MIDI Patcher - NG2\n");
    Trace("Connect i2c error\n");
    return false;
}

void TUpdater::ReadAnswers(char* buffer)
{
    char* lines[TMidiCom::kMaxLines];
    const int count = midi->ReadConsoleMessage2(buffer, lines, TMidiCom::kMaxLines);
    for (int i = 0; i < count; ++i)
        GetCSPMessage(lines[i], static_cast<int>(std::strlen(lines[i])));
}

void TUpdater::DropImage()
{
    delete hexFile;
    hexFile = nullptr;
}

int TUpdater::ExpandAndLoad(const char* source, char* version)
{
    // What can't be expanded leaves no older copy behind.
    if (FileExists(kExpandedFirmware))
        DeleteFile(kExpandedFirmware);
    if (!Decompress(source, kExpandedFirmware))
        return -1;
    return LoadIntelHex(kExpandedFirmware, version);
}

void TUpdater::StepConnect()
{
    // An update goes on even if the CSP never said that it is idle.
    if (updateCounter > kSilenceLimit)
        EnterStatus(Request);
    if (flashModeCounter % kFlashModeEvery == 0) {
        SendFlashMode(midi, kFlashModeGroup);
        usleep(kFlashModeWait);
        SendLine(midi, "STATUS");
        Trace("Send Flash Mode TUpdater Update\n");
    }
    CountFlashMode(flashModeCounter);
}

bool TUpdater::StepRequest()
{
    AskForWrite(midi);
    Trace("Send WriteCommand\n");
    if (updateCounter <= kSilenceLimit)
        return true;
    PrintAndLog("Piano is not connected 2\n");
    return false;
}

void TUpdater::StepStartData()
{
    LogText("Start CSP Update\n");
    BeginData(midi);
    Trace("Start APE Update\n");
}

bool TUpdater::StepTransfer()
{
    if (updateCounter <= kSilenceLimit)
        return true;
    if (ngAddress == 0) {
        constexpr char kNoReply[] = "Piano is no reply\n";
        LogText(kNoReply);  // before it is printed, unlike PrintAndLog
        Trace(kNoReply);
        return false;
    }
    // The block may have been lost on its way, so it goes out once more before the update ends.
    SendIntelHex(midi, ngAddress, kUpdateBlock);
    ngAddress = 0;
    updateCounter = 0;
    return true;
}

void TUpdater::StepFinished()
{
    Trace("APE Update Finished\n");
    LogText("CSP Update Finished\n");
    if (renameFile)
        RenameImage();
}

int TUpdater::StepFailed()
{
    PrintAndLog("CSP Update Failed\n");
    if (retryCount != 0)
        return HasFailed;
    ++retryCount;
    EnterStatus(Request);
    return GoesOn;
}

// Gives the file a name made from the version that it carries.
void TUpdater::RenameImage()
{
    TSString version(hexFile->versionText);
    version.Strip("/\\. ");
    const TSString directory = ExtractFileDirSX(hexFileName);
    // A bare name has no directory and comes back whole. So does one that ends in a separator that
    // belongs to the directory, ":".
    const bool endsInColon = hexFileName[std::strlen(hexFileName) - 1] == ':';
    const bool noDirectory = directory == "" || (directory == hexFileName && !endsInColon);
    const TSString newName = noDirectory ? version + ".hex" : directory + "/" + version + ".hex";
    if (rename(hexFileName, newName.c_str()) == 0) {
        Trace("Rename OK\n");
        LogText("Update File Renamed\n");
    } else {
        Trace("Rename NG\n");
        LogText("Update File Rename Error\n");
    }
}

void TUpdater::EnterStatus(ConsoleStatus status)
{
    updateStatus = status;
    updateCounter = 0;
}

void TUpdater::AskForWrite(TMidiCom* link)
{
    lineIndex = 0;
    sending = false;
    SendLine(link, "WRITE  :");
}

void TUpdater::BeginData(TMidiCom* link)
{
    upperAddress = 0;
    lineIndex = 0;
    sendedAddress = 0;
    sending = true;
    if (hexFile->lineCount != 0)
        SendIntelHex(link, 0, kUpdateBlock);
    EnterStatus(Transfer);
}

// Takes the present row into the addresses. True for an extended linear address record.
bool TUpdater::TrackRow()
{
    return hexFile->GetSendedAddress(hexFile->lines[lineIndex], &upperAddress, &sendedAddress);
}

// Ends on the first row whose end lies above `address`, on an extended linear address record that
// lands on it, or behind the last row.
void TUpdater::Seek(std::uint32_t address)
{
    upperAddress = 0;
    lineIndex = 0;
    sendedAddress = 0;
    if (hexFile->lineCount == 0)
        return;
    bool isBase = TrackRow();
    while (sendedAddress <= address) {
        if (sendedAddress == address && isBase)
            return;
        if (++lineIndex >= hexFile->lineCount)
            return;
        isBase = TrackRow();
    }
}

// Sends the present row, unless it is empty. True for an extended linear address record.
bool TUpdater::SendRow(TMidiCom* link)
{
    const char* row = hexFile->lines[lineIndex];
    if (*row == '\0')
        return false;
    SendLine(link, row);
    return TrackRow();
}

// An extended linear address record never ends a block, although its address is a multiple of every
// block size: the row behind it goes out with it.
void TUpdater::SendRowWithItsBase(TMidiCom* link)
{
    const bool isBase = SendRow(link);
    ++lineIndex;
    if (!isBase || lineIndex >= hexFile->lineCount)
        return;
    SendRow(link);
    ++lineIndex;
}

void TUpdater::OnAnswer(const Setting& setting, const char* message, int length)
{
    const ConsoleLine line(message);
    switch (updateStatus) {
    case Connect:
        if (!line.BeginsWith("Status:Flash Idle")) {
            ++errorCounter;
            return;
        }
        EnterStatus(Request);
        errorCounter = 0;
        if (!setting.inServer)
            flashModeCounter = 0;
        return;
    case Request:
        if (!line.BeginsWith("Start WRITE ?")) {
            ++errorCounter;
            return;
        }
        EnterStatus(StartData);
        errorCounter = 0;
        return;
    case Transfer: OnTransferAnswer(setting, line, length); return;
    default: return;
    }
}

// The first test that fits decides.
void TUpdater::OnTransferAnswer(const Setting& setting, const ConsoleLine& line, int length)
{
    if (length > kShortestOkAbove && line.BeginsWith("OK")) {
        OnOk(setting, line);
    } else if (line.BeginsWith("NG")) {
        OnRefused(setting, line);
    } else if (!setting.inServer && (line.BeginsWith("Erasing") || line.BeginsWith("WR:"))) {
        errorCounter = 0;
        updateCounter = 0;
        Trace(line.Text());
    } else if (line.BeginsWith("END")) {
        sending = false;
        OnClosing(setting, "End Recive\n");
    } else if (line.BeginsWith("Finished")) {
        updateStatus = Finished;
        OnClosing(setting, "Finish Recive\n");
    } else if (line.BeginsWith("Failed")) {
        updateStatus = Failed;
        OnClosing(setting, "Fail Recive\n");
    } else {
        ++errorCounter;
    }
}

void TUpdater::OnOk(const Setting& setting, const ConsoleLine& line)
{
    errorCounter = 0;
    updateCounter = 0;
    if (!setting.inServer) {
        Trace(line.Text());
        SendIntelHex(setting.midi, sendedAddress, kUpdateBlock);
        return;
    }
    const std::uint32_t address = line.Address();
    if (!sending || address != sendedAddress)
        return;
    SendIntelHex(setting.midi, sendedAddress, kUpdateBlock);
    TellProgress(setting.zaurus, address);
}

void TUpdater::OnRefused(const Setting& setting, const ConsoleLine& line)
{
    if (setting.inServer)
        Trace((TSString("NG Recive ") + line.Text() + "\n").c_str());
    else
        updateCounter = 0;
    ++errorCounter;
    const unsigned long address = line.Address();
    // The block is on its way already when the CSP refuses the same place again.
    if (address != ngAddress)
        SendIntelHex(setting.midi, address, kUpdateBlock);
    ngAddress = address;
}

void TUpdater::OnClosing(const Setting& setting, const char* trace)
{
    if (setting.inServer)
        Trace(trace);
    else
        updateCounter = 0;
}

void TUpdater::TellProgress(TZaurusCom* controller, std::uint32_t address) const
{
    const std::uint32_t size = hexFile->endAddress - hexFile->startAddress;
    if (size == 0)
        return;
    const std::uint32_t percent = 100U * (address - hexFile->startAddress) / size;
    if (percent % 2 != 0)
        return;
    TellController(controller, (TSString("Sending Data ") + TSString(percent) + "%\n").c_str());
}
