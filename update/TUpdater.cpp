#include "TUpdater.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <string_view>

#include <sys/stat.h>

#include "Compress.h"
#include "FileTools.h"
#include "Trace.h"

namespace {

constexpr int kYearBase = 1900;  // what a tm's year counts from

// Where a firmware file is looked for. The first that exists is used, even if it can't be loaded.
struct UpdateSource {
    const char* path = nullptr;  // of UnitPaths.h
    bool compressed = false;     // the coding of RunLength.h, to be expanded before it is loaded
};
constexpr UpdateSource kUpdateSources[] = {
    {kUsbFirmware, false},         {kUsbCompressedFirmware, true},    {kCdFirmware, false},
    {kCdCompressedFirmware, true}, {kFloppyCompressedFirmware, true},
};

// Null when none exists. A bad file isn't skipped for a good one on the next medium, so that it
// gets noticed.
const UpdateSource* FirstSource()
{
    const auto* const first =
        std::find_if(std::begin(kUpdateSources), std::end(kUpdateSources),
                     [](const auto& source) { return FileExists(source.path); });
    return first == std::end(kUpdateSources) ? nullptr : first;
}

}  // namespace

// The counts of unwanted answers and the refused address stay: nothing but an answer or silence
// changes them.
bool TUpdater::SetUpdateStatus(int status)
{
    if (hexFile == nullptr)
        return false;
    EnterStatus(status);
    return true;
}

int TUpdater::GetUpdateStatus() const
{
    return updateStatus;
}

void TUpdater::ClearUpdateStatus()
{
    hexFile = nullptr;
    EnterStatus(Status::Idle);
}

void TUpdater::IncUpdateCounter()
{
    updateCounter += kServerTimeout;
    TraceLine("Update Counter Inc 10+ ", TSString(updateCounter).c_str());
}

const char* TUpdater::FindUpdateSource()
{
    const UpdateSource* const source = FirstSource();
    return source == nullptr ? nullptr : source->path;
}

void TUpdater::SendIntelHex(TMidiCom* link, unsigned long address, int blockSize)
{
    if (hexFile != nullptr)
        rows.SendBlock(link, *hexFile, address, blockSize);
}

int TUpdater::SearchUpdateHex(char* version)
{
    const UpdateSource* const source = FirstSource();
    if (source == nullptr)
        return -1;
    return source->compressed ? ExpandAndLoad(source->path, version)
                              : LoadIntelHex(source->path, version);
}

// The stamp is there even if the file can't be loaded then.
int TUpdater::SearchParameterHex(char* stamp)
{
    if (!FileExists(kParameterFile))
        return -1;
    PrintParameterStamp(stamp);
    return LoadIntelHex(kParameterFile, nullptr);
}

void TUpdater::PrintParameterStamp(char* stamp)
{
    struct stat file = {};
    tm time = {};
    if (stat(kParameterFile, &file) != 0 || gmtime_r(&file.st_mtime, &time) == nullptr)
        return;
    std::snprintf(stamp, kStampSize, "(%d/%d/%d/%02d:%02d)", time.tm_year + kYearBase,
                  time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min);
}

int TUpdater::LoadIntelHex(const char* path, char* version)
{
    std::unique_ptr<THexFile> loaded = BeginLoad();
    if (!StoreFileName(path) || !loaded->LoadFromFile(hexFileName))
        return -1;
    TakeImage(std::move(loaded), version);
    return 0;
}

int TUpdater::LoadText(const char* path, std::string_view text, char* version)
{
    std::unique_ptr<THexFile> loaded = BeginLoad();
    if (!StoreFileName(path) || !loaded->LoadFromText(text))
        return -1;
    TakeImage(std::move(loaded), version);
    return 0;
}

// Drops the present image first, so that only one is in memory.
std::unique_ptr<THexFile> TUpdater::BeginLoad()
{
    hexFile = nullptr;
    updateStatus = Status::Idle;
    return std::make_unique<THexFile>();
}

void TUpdater::TakeImage(std::unique_ptr<THexFile> loaded, char* version)
{
    hexFile = std::move(loaded);
    if (version != nullptr)
        std::copy(std::begin(hexFile->versionText), std::end(hexFile->versionText), version);
    updateCounter = 0;
}

// A path that doesn't fit isn't cut, since a cut path names another file: the name is then empty.
bool TUpdater::StoreFileName(const char* path)
{
    const std::string_view name(path);
    const bool fits = name.size() < sizeof(hexFileName);
    hexFileName[fits ? name.copy(hexFileName, name.size()) : 0] = '\0';
    return fits;
}

int TUpdater::ExpandAndLoad(const char* source, char* version)
{
    // A file that can't be expanded must not leave an older copy for the next one to load.
    DeleteFile(kExpandedFirmware);
    if (!Decompress(source, kExpandedFirmware, AtPath::Removed))
        return -1;
    return LoadIntelHex(kExpandedFirmware, version);
}
