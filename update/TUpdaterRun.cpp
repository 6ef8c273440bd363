// The update that runs alone, with links of its own.

#include "TUpdater.h"

#include <cstdio>
#include <string_view>

#include <unistd.h>

#include "Log.h"
#include "Path.h"
#include "PciDsp.h"
#include "ReadSet.h"
#include "Text.h"
#include "Trace.h"

namespace {

constexpr int kLogLinesKept = 50;
constexpr int kPassWait = 1;  // seconds of one wait

void Log(const char* text)
{
    static_cast<void>(AddLogFile(kUpdateLog, text));
}

// What the two attempts at the MIDI Patcher log and print.
struct AttemptTexts {
    const char* connected;
    const char* refused;
    const char* sequenceFailed;  // printed; the link itself was open
};
constexpr AttemptTexts kAttempts[] = {
    {"Open MIDI Patcher - OK1\n", "Open MIDI Patcher - NG1\n", "Connect i2c error2\n"},
    {"Open MIDI Patcher - OK2\n", "Open MIDI Patcher - NG2\n", "Connect i2c error\n"},
};

}  // namespace

// An update that can't load its file leaves the piano alone: nothing is opened before that.
int TUpdater::Initialize(bool rename, int port, const char* fileName, int connecttype)
{
    zaurus = std::make_unique<TZaurusCom>();
    midi = std::make_unique<TMidiCom>();
    hexFile = std::make_unique<THexFile>();
    renameFile = rename;
    zaurus->SetPortNo(port);
    if (!LoadFile(fileName))
        return kNoFile;

    // A failure of the link doesn't keep the piano side off.
    midi->Set_connecttype(connecttype);
    if (isBounded)
        midi->BoundWaits();
    const bool isOpen = OpenMidi();
    Log(PciDsp_setPiano(1) < 0 ? "Open PciDsp - NG\n" : "Open PciDsp - OK\n");
    EnterStatus(Status::Connect);
    retryCount = 0;
    if (isOpen) {
        Log("CSP Updater Initialize - OK\n");
        return 0;
    }
    TraceLine("Error:", TSString(kNoPatcher).c_str());
    Log((TSString("Update Error No.") + TSString(kNoPatcher) + "\n").c_str());
    sleep(kRetryWait);
    return kNoPatcher;
}

int TUpdater::Run()
{
    for (;;) {
        // The set is older than the step, which may lose the link: a wait then fails once.
        ReadSet set;
        set.Add(midi->GetMidiDescriptor());
        const int result = UpdateStatus();
        if (Step{result} == Step::GoesOn) {
            WaitForAnswers(set);
            continue;
        }
        Log(kRestartNote);
        restartError = RestartPiano();
        return result;
    }
}

// The log is cut first, so that it keeps the newest lines of earlier runs and all of this one.
bool TUpdater::LoadFile(const char* fileName)
{
    const bool nameFits = StoreFileName(fileName);
    static_cast<void>(ResetLogFile(kUpdateLog, kLogLinesKept));
    Log("CSP Updater Start Now.\n");
    if (!nameFits || !hexFile->LoadFromFile(hexFileName)) {
        Trace("No Update File!\n");
        return false;
    }
    const TSString version = VersionLine(hexFile->versionText);
    version.Print(false);
    Log(version.c_str());
    return true;
}

// A link that opens isn't tried again when the connect sequence fails.
bool TUpdater::OpenMidi()
{
    const AttemptTexts* texts = kAttempts;
    const auto open = [this, &texts] {
        const int descriptor = midi->SetMidiDescriptor(kMidiPatcherSocket);
        if (descriptor < 0)
            Log(texts++->refused);
        return descriptor;
    };
    if (TryTwice(open) < 0) {
        Trace("Open i2c error\n");
        return false;
    }
    const bool isConnected = midi->Connect_i2cserver();
    Log(isConnected ? texts->connected : texts->refused);
    if (!isConnected)
        Trace(texts->sequenceFailed);
    return isConnected;
}

// Only a second without anything from the link counts as silence.
void TUpdater::WaitForAnswers(ReadSet& set)
{
    const int ready = set.Wait(kPassWait);
    if (ready == 0) {
        ++updateCounter;
        TraceLine("Update Counter Inc 1+ ", TSString(updateCounter).c_str());
    }
    if (ready <= 0 || !set.Has(midi->GetMidiDescriptor()))
        return;
    char buffer[TMidiCom::kMaxMessage];
    char* lines[TMidiCom::kMaxLines];
    const int count = midi->ReadConsoleMessage2(buffer, lines, TMidiCom::kMaxLines);
    for (int i = 0; i < count; ++i)
        GetCSPMessage(lines[i], TextLength(lines[i]));
}

// A file that has the new name already is replaced. The update has succeeded in any case.
void TUpdater::RenameImage() const
{
    const bool isRenamed =
        rename(hexFileName, VersionedName(hexFileName, hexFile->versionText).c_str()) == 0;
    Trace(isRenamed ? "Rename OK\n" : "Rename NG\n");
    Log(isRenamed ? "Update File Renamed\n" : "Update File Rename Error\n");
}

TSString TUpdater::VersionLine(const char* version)
{
    return TSString("CSP File Version: ") + version + "\n";
}

TSString TUpdater::VersionedName(const char* file, const char* version)
{
    TSString name(version);
    name.Strip("/\\. ");
    name += ".hex";
    const TSString directory = ExtractFileDirSX(file);
    // A bare name has no directory and comes back as it is. So does one that ends in a separator
    // that belongs to the directory, ":".
    const bool endsInColon = std::string_view(file).back() == ':';
    const bool isBare = directory == file && !endsInColon;
    return directory == "" || isBare ? name : directory + "/" + name;
}
