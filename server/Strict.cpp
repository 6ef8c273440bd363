#include "Strict.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Console.h"
#include "FileTools.h"
#include "FlashReader.h"
#include "Hex.h"
#include "Log.h"
#include "Path.h"
#include "Reason.h"
#include "Sockets.h"
#include "TCspReader.h"
#include "TMidiCom.h"
#include "TUpdater.h"

namespace {

// What a read-back covers.
constexpr std::uint32_t kStart = TCspReader::kParameterStart;
constexpr std::uint32_t kEnd = TCspReader::kParameterEnd;

// Any user may read which process is running, and what has failed, unless the umask forbids it.
constexpr mode_t kReadableByAll = 0644;

bool IsCompleteReadBack(const HexReport& report)
{
    const auto& ranges = report.ranges;
    return report.errors == 0 && ranges.size() == 1 && ranges[0].start == kStart &&
           ranges[0].size == kEnd - kStart;
}

}  // namespace

// The file first: what is wrong with it is known without anything of the unit, and with -v too. The
// lock comes before the tests of what another strict run would be using.
bool Strict::Prepare(Options& options)
{
    log = options.HasFile() ? kUpdateLog : kServerLog;
    if (options.HasFile())
        firmware = CheckedFile(options.filename);
    if (!ReportAll(firmware.errors))
        return false;
    // Only a comparison with the flash needs the text again.
    if (!options.verify)
        firmware.bytes = {};
    if (options.HasFile() && options.versionOnly)
        return true;
    if (options.renameFile)
        CheckRename(options);
    return CanWrite(kLogDirectory) && UniqueFd(OpenToWrite(log)) && TakeLock() &&
           CanWrite(kMidiPatcherSocket) && (options.HasFile() || FindPort(options.port));
}

// The run has kept no reason for a link that it couldn't open, so the attempt is made again.
bool Strict::Finish(const Options& options, int result) const
{
    if (result == kNoPatcher)
        return FindPatcher(options.connecttype) &&
               Report("the MIDI Patcher could not be reached before, but can be now");
    if (result == kNoPort)
        return FindPort(options.port) && Report("the port was in use before, but is free now");
    if (result != 0)
        return Report("the update has failed");
    if (options.renameFile && !options.versionOnly && !FileExists(NewName(options).c_str()))
        Report(std::string(options.filename) + ": keeps its name, since the rename has failed");
    return readBackIsSaved && (!options.verify || Verify(options.connecttype));
}

const char* Strict::BeginReadBack(const std::string& path)
{
    target = path;
    received = path + ".new";
    // One that a run has left can't be taken for this one's.
    DeleteFile(received.c_str());
    return received.c_str();
}

void Strict::EndReadBack(const std::string& text)
{
    const std::string error = ReplaceReadBack(text);
    readBackIsSaved = error.empty();
    if (readBackIsSaved)
        return;
    DeleteFile(received.c_str());
    Report(target + ": the read-back is not saved: " + error);
}

// Returns what is wrong, or nothing.
std::string Strict::ReplaceReadBack(const std::string& text) const
{
    // Made again where it is missing, so that errno has the reason.
    const UniqueFd file(
        open(received.c_str(), O_WRONLY | O_APPEND | O_CREAT | kOpenFlags, kReadableByAll));
    if (!file)
        return Reason();
    const CheckedFile saved(received);
    // If it was cut short, writing the next byte fails for the same reason.
    const std::size_t size = saved.Text().size();
    if (size < text.size() && write(file.Get(), &text[size], 1) < 0)
        return Reason();
    if (!saved.errors.empty())
        return saved.errors.front();
    if (!IsCompleteReadBack(saved.report))
        return "its data aren't exactly the parameter flash";
    if (saved.Text() != text)
        return "not what was received";
    struct stat old = {};
    if (stat(target.c_str(), &old) == 0)
        fchmod(file.Get(), old.st_mode);
    // Some disks refuse bytes only when they come to write them.
    if (fsync(file.Get()) != 0 || rename(received.c_str(), target.c_str()) != 0)
        return Reason();
    // Without it a power cut may bring the old file back. Not every file system can do it.
    const std::string directory = target.substr(0, target.rfind('/') + 1) + ".";
    fsync(UniqueFd(open(directory.c_str(), O_RDONLY | kOpenFlags)).Get());
    return {};
}

TSString Strict::NewName(const Options& options) const
{
    return TUpdater::VersionedName(options.filename, firmware.report.version.c_str());
}

// A file with the wrong name does less harm than a flash that isn't updated. The "/" makes a bare
// name one that ExtractFileNameSX finds; only the extension is left without a version text.
void Strict::CheckRename(Options& options) const
{
    const std::string file = options.filename;
    const TSString name = NewName(options);
    if (ExtractFileNameSX(TSString("/") + name) == ".hex")
        Report(file + ": keeps its name, since it has no version text");
    else if (file != name.c_str() && FileExists(name.c_str()))
        Report(file + ": keeps its name, since " + name.c_str() + " exists");
    else
        return;
    options.renameFile = false;
}

bool Strict::CanWrite(const char* path) const
{
    return access(path, W_OK) == 0 || ReportReason(path);
}

// Makes the file where it is missing. The descriptor, which the caller owns, or -1 with a report.
int Strict::OpenToWrite(const char* path) const
{
    const int opened = open(path, O_RDWR | O_CREAT | kOpenFlags, kReadableByAll);
    if (opened < 0)
        ReportReason(path);
    return opened;
}

// The lock ends with its process, so the file of an earlier one is no obstacle.
bool Strict::TakeLock()
{
    lock.Reset(OpenToWrite(kLockFile));
    if (!lock)
        return false;
    struct flock other = {};
    other.l_type = F_WRLCK;
    if (fcntl(lock.Get(), F_SETLK, &other) < 0) {
        if (fcntl(lock.Get(), F_GETLK, &other) < 0 || other.l_type == F_UNLCK)
            return ReportReason(kLockFile);
        return Report(std::string(kLockFile) + ": process " + std::to_string(other.l_pid) +
                      " is running already");
    }
    const std::string id = std::to_string(getpid()) + "\n";
    const bool isWritten =
        ftruncate(lock.Get(), 0) == 0 && write(lock.Get(), id.c_str(), id.size()) > 0;
    return isWritten || ReportReason(kLockFile);
}

bool Strict::FindPatcher(int connecttype) const
{
    TMidiCom link;
    link.Set_connecttype(connecttype);
    const bool isThere =
        link.SetMidiDescriptor(kMidiPatcherSocket) >= 0 && link.Connect_i2cserver();
    return isThere || ReportReason(kMidiPatcherSocket);
}

// Binds the port for a moment, without listening; the server opens it seconds later.
bool Strict::FindPort(int port) const
{
    const UniqueFd bound(mkboundsocINET(port));
    return bound || ReportReason("port " + std::to_string(port));
}

bool Strict::Verify(int connecttype) const
{
    const std::string text = ReadFlash(connecttype).text;
    if (!IsCompleteReadBack(CheckHex(text)))
        return Report("the flash is not readable");
    for (const AddressRange& range : firmware.report.ranges) {
        const std::uint32_t last = range.start + range.size - 1;
        ReportRest(range.start, std::min(last, kStart - 1));
        ReportRest(std::max(range.start, kEnd), last);
    }
    return Compare(Image(firmware.Text()), Image(text));
}

// Only where the file has data: what the flash has around them is not the file's concern.
bool Strict::Compare(const Image& file, const Image& flash) const
{
    std::uint32_t first = 0;
    int count = 0;
    for (std::uint32_t at = kStart; at < kEnd; ++at) {
        if (file.At(at) != Image::kNoData && file.At(at) != flash.At(at) && count++ == 0)
            first = at;
    }
    return count == 0 || Report("the flash differs from the file, bytes: " + std::to_string(count) +
                                ", first at " + UIntToSHex(first, kAddressDigits).c_str() + ": " +
                                UIntToSHex(flash.At(first), 2).c_str() + " in the flash, " +
                                UIntToSHex(file.At(first), 2).c_str() + " in the file");
}

// What of the file lies outside a read-back.
void Strict::ReportRest(std::uint32_t first, std::uint32_t last) const
{
    if (first <= last)
        Report((TSString("not verified: ") + UIntToSHex(first, kAddressDigits) + " to " +
                UIntToSHex(last, kAddressDigits))
                   .c_str());
}

bool Strict::Report(const std::string& text) const
{
    PrintError(text);
    AddLogFile(log, (text + "\n").c_str());
    return false;
}

bool Strict::ReportReason(const std::string& subject) const
{
    return Report(ReasonFor(subject));
}

bool Strict::ReportAll(const std::vector<std::string>& texts) const
{
    for (const std::string& text : texts)
        Report(text);
    return texts.empty();
}
