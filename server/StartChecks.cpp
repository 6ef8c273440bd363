#include "StartChecks.h"

#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Path.h"
#include "Sockets.h"
#include "TMidiCom.h"
#include "UnitPaths.h"

// Any user may read which process is running, and what has failed, unless the umask forbids it.
static constexpr mode_t kReadableByAll = 0644;

bool StartChecks::RequireLogAndLock(const Options& options)
{
    const char* const log = options.HasFile() ? kUpdateLog : kServerLog;
    return RequireWritable(kLogDirectory) && RequireFile(log) && RequireLock();
}

// Another strict run, which would have taken the port, was excluded before.
bool StartChecks::RequireUnit(const Options& options) const
{
    return RequireWritable(kMidiPatcherSocket) && (options.HasFile() || RequirePort(options));
}

bool StartChecks::RequirePatcher(int connecttype) const
{
    TMidiCom link;
    link.Set_connecttype(connecttype);
    if (link.SetMidiDescriptor(kMidiPatcherSocket) >= 0 && link.Connect_i2cserver())
        return true;
    report.AddReason(kMidiPatcherSocket);
    return false;
}

bool StartChecks::RequirePort(const Options& options) const
{
    const UniqueFd bound(mkboundsocINET(options.port, options.address));
    const std::string place = options.addressText.empty() ? "" : " at " + options.addressText;
    if (!bound)
        report.AddReason("port " + std::to_string(options.port) + place);
    return static_cast<bool>(bound);
}

// ExtractFileNameSX needs a "/" before a bare name. Without a version text the name is only the
// extension. lstat also finds a link that leads nowhere, which isn't replaced either.
bool StartChecks::RequireRename(const std::string& file, const TSString& newName) const
{
    struct stat other = {};
    const std::string keeps = file + ": keeps its name, since ";
    if (ExtractFileNameSX(TSString("/") + newName) == ".hex")
        report.Add(keeps + "it has no version text");
    else if (file != newName.c_str() && lstat(newName.c_str(), &other) == 0)
        report.Add(keeps + newName.c_str() + " exists");
    else
        return true;
    return false;
}

bool StartChecks::RequireWritable(const char* path) const
{
    if (access(path, W_OK) == 0)
        return true;
    report.AddReason(path);
    return false;
}

// Makes the file where it is missing. No descriptor after a report.
UniqueFd StartChecks::RequireFile(const char* path) const
{
    UniqueFd file(open(path, O_RDWR | O_CREAT | kOpenFlags, kReadableByAll));
    if (!file)
        report.AddReason(path);
    return file;
}

// The lock ends with its process, so the file of an earlier one is no obstacle.
bool StartChecks::RequireLock()
{
    lock.Reset(RequireFile(kLockFile).Release());
    if (!lock)
        return false;
    struct flock other = {};
    other.l_type = F_WRLCK;
    if (fcntl(lock.Get(), F_SETLK, &other) == 0 && WriteOwnId())
        return true;
    if (fcntl(lock.Get(), F_GETLK, &other) == 0 && other.l_type != F_UNLCK)
        report.Add(std::string(kLockFile) + ": process " + std::to_string(other.l_pid) +
                   " is running already");
    else
        report.AddReason(kLockFile);
    return false;
}

bool StartChecks::WriteOwnId() const
{
    const std::string id = std::to_string(getpid()) + "\n";
    return ftruncate(lock.Get(), 0) == 0 && write(lock.Get(), id.c_str(), id.size()) > 0;
}
