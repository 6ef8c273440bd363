#include "NewFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Files.h"
#include "Signals.h"

namespace {

constexpr std::size_t kPiece = 0x40000;  // bytes written to the disk between two looks at signals
constexpr mode_t kWritable = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr mode_t kAnyFile = 0666;

std::string DirectoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

// Where the links lead that stand in the place of a file; the path itself where there is none.
std::string FollowLinks(const std::string& path)
{
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
    return real ? real.get() : path;
}

mode_t PermissionsOfNewFiles()
{
    const mode_t mask = umask(0);
    umask(mask);
    return kAnyFile & ~mask;
}

}  // namespace

NewFile::NewFile(std::string target)
    : path(std::move(target)), place(FollowLinks(path)), blocked(EndingSignals())
{
    sigprocmask(SIG_BLOCK, &blocked, &restored);
}

NewFile::~NewFile()
{
    if (!work.empty())
        unlink(work.c_str());
    sigprocmask(SIG_SETMASK, &restored, nullptr);
}

Outcome NewFile::Write(std::string_view bytes)
{
    if (Outcome opened = Open(); !opened.IsSuccess())
        return opened;
    if (Outcome written = WriteAll(bytes); !written.IsSuccess())
        return written;
    return Compare(bytes);
}

Outcome NewFile::TakePlace()
{
    if (rename(work.c_str(), place.c_str()) != 0)
        return FailByErrno();
    work.clear();
    // For a medium that is pulled out next. Not every file system can flush a directory.
    const UniqueFd directory(open(DirectoryOf(place).c_str(), O_RDONLY | kOpenFlags));
    static_cast<void>(fsync(directory.Get()));
    return fsync(file.Get()) == 0 ? Outcome() : FailByErrno();
}

// The new file gets the permissions of the one that it replaces, or those of any new file. Links
// were followed, so one that is still there leads nowhere. It is refused, like a device.
Outcome NewFile::Open()
{
    struct stat state = {};
    const bool replaces = lstat(place.c_str(), &state) == 0;
    if (replaces && !S_ISREG(state.st_mode))
        return Fail("is not a regular file");
    if (replaces && (state.st_mode & kWritable) == 0)
        return Fail("is read-only");
    old.Reset(open(place.c_str(), O_RDONLY | kOpenFlags));
    std::string pattern = DirectoryOf(place) + ".diagctl-XXXXXX";
    file.Reset(mkostemp(pattern.data(), O_CLOEXEC));
    if (!file)
        return FailByErrno();
    work = pattern;
    // A medium for other systems has no permissions.
    static_cast<void>(fchmod(file.Get(), replaces ? state.st_mode : PermissionsOfNewFiles()));
    return {};
}

// Some disks refuse bytes only when they come to write them. A slow one must not delay a signal
// for longer than a piece takes.
Outcome NewFile::WriteAll(std::string_view bytes)
{
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, kPiece);
        const ssize_t count = write(file.Get(), piece.data(), piece.size());
        if (count <= 0 || fdatasync(file.Get()) != 0)
            return FailByErrno();
        if (IsEnding(blocked))
            return Fail("interrupted, and nothing was replaced");
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return fsync(file.Get()) == 0 ? Outcome() : FailByErrno();
}

// Reads from the disk, not from the memory that the bytes have just been in.
Outcome NewFile::Compare(std::string_view bytes)
{
    static_cast<void>(posix_fadvise(file.Get(), 0, 0, POSIX_FADV_DONTNEED));
    const UniqueFd again(open(work.c_str(), O_RDONLY | kOpenFlags));
    std::string found;
    found.reserve(bytes.size());
    if (!again || !ReadAll(again.Get(), found))
        return FailByErrno();
    return found == bytes ? Outcome() : Fail("reads back differently; nothing was replaced");
}

Outcome NewFile::Fail(const std::string& reason) const
{
    return {Status::Failed, path + ": " + reason};
}

Outcome NewFile::FailByErrno() const
{
    return Fail(std::strerror(errno));
}

Outcome WriteNewFile(const std::string& target, std::string_view bytes)
{
    NewFile file(target);
    Outcome written = file.Write(bytes);
    return written.IsSuccess() ? file.TakePlace() : written;
}
