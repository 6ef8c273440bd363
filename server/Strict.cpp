#include "Strict.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "FileTools.h"
#include "FlashReader.h"
#include "Hex.h"
#include "Log.h"
#include "Sockets.h"
#include "TCspReader.h"
#include "TUpdater.h"

namespace {

// What a read-back covers.
constexpr std::uint32_t kStart = TCspReader::kParameterStart;
constexpr std::uint32_t kEnd = TCspReader::kParameterEnd;

constexpr mode_t kReadableByAll = 0644;

// What keeps it from being a read-back that is complete and on the disk; empty: nothing.
std::string ReadBackError(const CheckedFile& file, const std::string& path)
{
    if (!file.error.empty())
        return file.error;
    const AddressRange& range = file.report.ranges.front();
    if (file.report.ranges.size() > 1 || range.start != kStart || range.size != kEnd - kStart)
        return path + ": not all of the parameter flash, and no more";
    // Some disks refuse bytes only when they come to write them.
    const UniqueFd opened(OpenToRead(path.c_str()));
    return fsync(opened.Get()) == 0 ? "" : path + ": " + Reason();
}

std::string Digits(std::uint32_t value, int width)
{
    return UIntToSHex(value, width).c_str();
}

}  // namespace

bool Strict::Prepare(Options& options)
{
    log = options.HasFile() ? kUpdateLog : kServerLog;
    if (options.HasFile())
        firmware = CheckedFile(options.filename);
    if (!firmware.error.empty())
        return Report(firmware.error);
    if (options.HasFile() && options.versionOnly)
        return true;
    if (options.renameFile)
        CheckRename(options);
    return TakeLock() &&
           (access(kMidiPatcherSocket, W_OK) == 0 || ReportReason(kMidiPatcherSocket)) &&
           (options.HasFile() || FindPort(options.port));
}

bool Strict::Finish(const Options& options, int result) const
{
    if (result == kNoPatcher) {
        // The run has kept no reason, so the attempt is made again.
        errno = 0;
        const UniqueFd link(mkclisocUNIX(kMidiPatcherSocket));
        return ReportReason(kMidiPatcherSocket);
    }
    return result >= 0 && readBackIsSaved && (!options.verify || Verify(options));
}

const char* Strict::BeginReadBack(const std::string& path)
{
    target = path;
    received = path + ".new";
    // One that a run has left can't be taken for this one's.
    DeleteFile(received.c_str());
    return received.c_str();
}

void Strict::EndReadBack()
{
    std::string error = ReadBackError(CheckedFile(received), received);
    if (error.empty() && rename(received.c_str(), target.c_str()) < 0)
        error = Reason();
    readBackIsSaved = error.empty();
    if (readBackIsSaved)
        return;
    DeleteFile(received.c_str());
    Report(target + ": the read-back is not saved: " + error);
}

// A file at a wrong name is a smaller harm than a flash that isn't updated.
void Strict::CheckRename(Options& options) const
{
    const std::string file = options.filename;
    const std::string& version = firmware.report.version;
    const TSString name = TUpdater::VersionedName(file.c_str(), version.c_str());
    if (version.empty())
        Report(file + ": keeps its name, since it has no version text");
    else if (file != name.c_str() && FileExists(name.c_str()))
        Report(file + ": keeps its name, since " + name.c_str() + " exists");
    else
        return;
    options.renameFile = false;
}

// The lock ends with its process, so the file of an earlier one is no obstacle.
bool Strict::TakeLock()
{
    lock.Reset(open(kLockFile, O_RDWR | O_CREAT | kOpenFlags, kReadableByAll));
    if (!lock)
        return ReportReason(kLockFile);
    struct flock other = {};
    other.l_type = F_WRLCK;
    if (fcntl(lock.Get(), F_SETLK, &other) < 0) {
        if (fcntl(lock.Get(), F_GETLK, &other) < 0 || other.l_type == F_UNLCK)
            return ReportReason(kLockFile);
        return Report(std::string(kLockFile) + ": process " + std::to_string(other.l_pid) +
                      " is at work already");
    }
    const std::string id = std::to_string(getpid()) + "\n";
    const bool isWritten =
        ftruncate(lock.Get(), 0) == 0 && write(lock.Get(), id.c_str(), id.size()) > 0;
    return isWritten || ReportReason(kLockFile);
}

// Takes the port for a moment, without anybody that could connect; the server opens it seconds
// later.
bool Strict::FindPort(int port) const
{
    const UniqueFd bound(mkboundsocINET(port));
    return bound || ReportReason("port " + std::to_string(port));
}

bool Strict::Verify(const Options& options) const
{
    std::string directory = kVerifyDirectory;
    if (mkdtemp(directory.data()) == nullptr)
        return ReportReason(directory);
    const std::string path = directory + "/flash.hex";
    const bool isRead = ReadFlash(options.connecttype, path);
    const CheckedFile flash(path);
    const std::string error = isRead ? ReadBackError(flash, path) : "the flash is not readable";
    DeleteFile(path.c_str());
    std::remove(directory.c_str());
    return error.empty() ? Compare(Image(flash.Text())) : Report(error);
}

bool Strict::Compare(const Image& flash) const
{
    for (const AddressRange& range : firmware.report.ranges) {
        const std::uint32_t last = range.start + range.size - 1;
        ReportRest(range.start, std::min(last, kStart - 1));
        ReportRest(std::max(range.start, kEnd), last);
    }
    const Image file(firmware.Text());
    std::uint32_t first = 0;
    int count = 0;
    for (std::uint32_t at = kEnd - 1; at >= kStart; --at) {
        if (file.At(at) == Image::kNoData || file.At(at) == flash.At(at))
            continue;
        first = at;
        ++count;
    }
    return count == 0 ||
           Report("the flash differs from the file, bytes: " + std::to_string(count) +
                  ", first at " + Digits(first, 8) + ": " + Digits(flash.At(first), 2) +
                  " in the flash, " + Digits(file.At(first), 2) + " in the file");
}

// What of the file lies outside a read-back.
void Strict::ReportRest(std::uint32_t first, std::uint32_t last) const
{
    if (first <= last)
        Report("not verified: " + Digits(first, 8) + " to " + Digits(last, 8));
}

bool Strict::Report(const std::string& text) const
{
    std::fprintf(stderr, "diag_server: %s\n", text.c_str());
    AddLogFile(log, (text + "\n").c_str());
    return false;
}

bool Strict::ReportReason(const std::string& subject) const
{
    return Report(subject + ": " + Reason());
}
