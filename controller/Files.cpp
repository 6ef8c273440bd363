#include "Files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kPiece = 0x40000;  // bytes written to the disk between two looks at signals
constexpr std::size_t kLargest = 0x10000000;  // bytes; an image has a small part of that
constexpr mode_t kWritable = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr mode_t kAnyFile = 0666;

Outcome CannotRead(const std::string& path, const char* reason)
{
    return {Status::Usage, path + ": " + reason};
}

// What stands in the way of reading a file to its end; null for a regular file.
const char* KindOf(const struct stat& state)
{
    if (S_ISREG(state.st_mode))
        return nullptr;
    return S_ISDIR(state.st_mode) ? "is a directory" : "is not a regular file; - reads a pipe";
}

// Appends what the file has, up to a limit. False when a read fails.
bool ReadAll(int descriptor, std::string& bytes)
{
    char piece[0x10000];
    ssize_t count = 0;
    while (bytes.size() <= kLargest && (count = read(descriptor, piece, sizeof(piece))) > 0)
        bytes.append(piece, static_cast<std::size_t>(count));
    return count >= 0;
}

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

bool HasPending(const sigset_t& blocked)
{
    sigset_t pending;
    sigpending(&pending);
    for (const int each : {SIGHUP, SIGINT, SIGTERM}) {
        if (sigismember(&blocked, each) == 1 && sigismember(&pending, each) == 1)
            return true;
    }
    return false;
}

}  // namespace

Outcome ReadInput(const std::string& path, std::string& bytes)
{
    const bool isStandard = path == "-";
    const UniqueFd file(isStandard ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | kOpenFlags));
    struct stat state = {};
    if (!file || fstat(file.Get(), &state) != 0)
        return CannotRead(path, std::strerror(errno));
    if (const char* const kind = KindOf(state); kind != nullptr && !isStandard)
        return CannotRead(path, kind);
    const auto size = static_cast<std::size_t>(state.st_size);
    if (size <= kLargest) {
        bytes.reserve(size);
        if (!ReadAll(file.Get(), bytes))
            return CannotRead(path, std::strerror(errno));
    }
    const bool isTooLarge = std::max(size, bytes.size()) > kLargest;
    return isTooLarge ? CannotRead(path, "is larger than any image") : Outcome();
}

sigset_t EndingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction action = {};
        if (sigaction(each, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset(&signals, each);
    }
    return signals;
}

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
    // For a medium that is pulled out next. Not every file system can do it.
    const UniqueFd directory(open(DirectoryOf(place).c_str(), O_RDONLY | kOpenFlags));
    static_cast<void>(fsync(directory.Get()));
    return {};
}

// The new file gets the permissions of the one that it replaces, or those of any new file.
Outcome NewFile::Open()
{
    struct stat old = {};
    const bool replaces = stat(place.c_str(), &old) == 0;
    if (replaces && !S_ISREG(old.st_mode))
        return Fail("is not a regular file");
    if (replaces && (old.st_mode & kWritable) == 0)
        return Fail("is read-only");
    std::string pattern = DirectoryOf(place) + ".diagctl-XXXXXX";
    file.Reset(mkostemp(pattern.data(), O_CLOEXEC));
    if (!file)
        return FailByErrno();
    work = pattern;
    // A medium for other systems has no permissions.
    static_cast<void>(fchmod(file.Get(), replaces ? old.st_mode : PermissionsOfNewFiles()));
    return {};
}

// Some disks refuse bytes only when they come to write them. A slow one must not hold a signal back
// for longer than a piece takes.
Outcome NewFile::WriteAll(std::string_view bytes)
{
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, kPiece);
        const ssize_t count = write(file.Get(), piece.data(), piece.size());
        if (count <= 0 || fdatasync(file.Get()) != 0)
            return FailByErrno();
        if (HasPending(blocked))
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
