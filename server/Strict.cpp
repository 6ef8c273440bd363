#include "Strict.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <sys/file.h>
#include <unistd.h>

#include "FileBytes.h"
#include "FileTools.h"
#include "HexCheck.h"
#include "Log.h"
#include "Sockets.h"
#include "TCspReader.h"
#include "TUpdater.h"

namespace {

// Of the errors in a file, one may bring a thousand others.
constexpr std::size_t kMostReported = 5;

constexpr mode_t kReadableByAll = 0644;
constexpr std::size_t kLongestId = 16;  // characters of a process id

// The system's reason for what has just failed.
std::string Reason()
{
    return errno == 0 ? "not a regular file, or too large" : std::strerror(errno);
}

struct CheckedFile {
    FileBytes bytes;
    HexReport report;
    std::vector<std::string> errors;  // a sentence each; empty for a good file
};

void TakeErrors(const std::string& path, CheckedFile& file)
{
    for (const Finding& finding : file.report.findings) {
        if (finding.severity == Severity::Error && file.errors.size() < kMostReported)
            file.errors.push_back(path + ":" + std::to_string(finding.line) + ": " + finding.text);
    }
    if (const std::size_t rest = file.report.errors - file.errors.size(); rest > 0)
        file.errors.push_back(path + ": " + std::to_string(rest) + " more errors");
}

CheckedFile CheckFile(const std::string& path)
{
    CheckedFile file;
    errno = 0;
    const UniqueFd opened(OpenToRead(path.c_str()));
    if (!opened || !ReadWholeFile(opened.Get(), file.bytes)) {
        file.errors.push_back(path + ": " + Reason());
        return file;
    }
    const auto* text = reinterpret_cast<const char*>(file.bytes.data.get());
    file.report = CheckHex({text, file.bytes.size});
    TakeErrors(path, file);
    return file;
}

// What keeps a read-back from being taken for good; empty for a complete one.
std::string FindReadBackError(const std::string& path)
{
    const CheckedFile file = CheckFile(path);
    if (!file.errors.empty())
        return file.errors.front();
    const auto& ranges = file.report.ranges;
    const bool isComplete =
        ranges.size() == 1 && ranges[0].start == TCspReader::kParameterStart &&
        ranges[0].size == TCspReader::kParameterEnd - TCspReader::kParameterStart;
    if (!isComplete)
        return path + ": not all of the parameter flash, and no more";
    // Some disks refuse bytes only when they come to write them.
    const UniqueFd opened(OpenToRead(path.c_str()));
    return opened && fsync(opened.Get()) == 0 ? "" : path + ": " + Reason();
}

// False when the disk doesn't take it.
bool WriteOwnId(int file)
{
    const std::string id = std::to_string(getpid()) + "\n";
    return ftruncate(file, 0) == 0 && write(file, id.c_str(), id.size()) > 0;
}

std::string ReadId(int file)
{
    char text[kLongestId] = {};
    const ssize_t count = read(file, text, sizeof(text));
    const std::string_view id(text, count > 0 ? count : 0);
    return std::string(id.substr(0, id.find('\n')));
}

}  // namespace

bool Strict::Prepare(Options& options)
{
    log = options.HasFile() ? kUpdateLog : kServerLog;
    if (options.HasFile() && !CheckFirmware(options))
        return false;
    if (options.HasFile() && options.versionOnly)
        return true;
    return TakeLock() && FindPatcher() && (options.HasFile() || FindPort(options.port));
}

bool Strict::Finish(int result) const
{
    if (result == kNoPatcher) {
        // The run has kept no reason, so the attempt is made again.
        const UniqueFd link(mkclisocUNIX(kMidiPatcherSocket));
        if (link)
            return Report(std::string(kMidiPatcherSocket) + ": the MIDI Patcher hangs up");
        return ReportReason(kMidiPatcherSocket);
    }
    return result >= 0 && readBackIsSaved;
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
    std::string error = FindReadBackError(received);
    if (error.empty() && rename(received.c_str(), target.c_str()) < 0)
        error = Reason();
    readBackIsSaved = error.empty();
    if (readBackIsSaved)
        return;
    DeleteFile(received.c_str());
    Report(target + ": the read-back is not saved: " + error);
}

void Strict::TakeLoadedFile(const char* path)
{
    damages = CheckFile(path).errors;
}

bool Strict::AllowsUpdate() const
{
    for (const std::string& damage : damages)
        Report(damage);
    return damages.empty();
}

bool Strict::CheckFirmware(Options& options) const
{
    const CheckedFile file = CheckFile(options.filename);
    for (const std::string& error : file.errors)
        Report(error);
    if (file.errors.empty() && options.renameFile && !options.versionOnly)
        CheckRename(options, file.report.version);
    return file.errors.empty();
}

// A file at a wrong name is a smaller harm than a flash that isn't updated.
void Strict::CheckRename(Options& options, const std::string& version) const
{
    const TSString name = TUpdater::VersionedName(options.filename, version.c_str());
    const bool isSame = name == options.filename;
    if (version.empty())
        Report(std::string(options.filename) + ": keeps its name, since it has no version text");
    else if (!isSame && FileExists(name.c_str()))
        Report(std::string(options.filename) + ": keeps its name, since " + name.c_str() +
               " exists");
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
    if (flock(lock.Get(), LOCK_EX | LOCK_NB) < 0) {
        if (errno != EWOULDBLOCK)
            return ReportReason(kLockFile);
        return Report(std::string(kLockFile) + ": process " + ReadId(lock.Get()) +
                      " is at work already");
    }
    return WriteOwnId(lock.Get()) || ReportReason(kLockFile);
}

bool Strict::FindPatcher() const
{
    return access(kMidiPatcherSocket, W_OK) == 0 || ReportReason(kMidiPatcherSocket);
}

// Takes the port for a moment, without anybody that could connect; the server opens it seconds
// later.
bool Strict::FindPort(int port) const
{
    const UniqueFd bound(mkboundsocINET(port));
    return bound || ReportReason("port " + std::to_string(port));
}

// Both return false, as what they report does.

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
