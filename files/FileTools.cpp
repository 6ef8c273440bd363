#include "FileTools.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utime.h>

#include "UniqueFd.h"

namespace {

constexpr std::size_t kBlockSize = 512;
constexpr mode_t kForEverybody = 0666;
constexpr mode_t kForTheOwner = 0600;

int OpenToRead(const char* path)
{
    return open(path, O_RDONLY | kOpenFlags);
}

int OpenToWrite(const char* path, mode_t permissions)
{
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | kOpenFlags, permissions);
}

enum class AtWriteError { Stop, GoOn };

struct Copied {
    std::int64_t bytes = 0;
    bool written = true;  // no write failed
};

// A read error ends the copy as the end of the source does. A short write lacks bytes, so it is an
// error, too.
Copied CopyBlocks(int source, int target, AtWriteError atWriteError)
{
    Copied copied;
    char block[kBlockSize];
    for (;;) {
        const ssize_t count = read(source, block, sizeof block);
        if (count <= 0)
            return copied;
        if (write(target, block, static_cast<std::size_t>(count)) == count)
            copied.bytes += count;
        else
            copied.written = false;
        if (!copied.written && atWriteError == AtWriteError::Stop)
            return copied;
    }
}

void CopyTimes(const char* source, const char* target)
{
    struct stat state {};
    if (stat(source, &state) != 0)
        return;
    utimbuf times{};
    times.actime = state.st_atime;
    times.modtime = state.st_mtime;
    utime(target, &times);
}

}  // namespace

bool FileExists(const char* path)
{
    return static_cast<bool>(UniqueFd(OpenToRead(path)));
}

bool FileExistsX(const char* path)
{
    return FileExists(path);
}

bool DeleteFile(const char* path)
{
    return unlink(path) == 0;
}

bool FileDelete(const char* path)
{
    return DeleteFile(path);
}

int CopyFile(const char* source, const char* target)
{
    const UniqueFd input(OpenToRead(source));
    if (!input)
        return -1;
    const UniqueFd output(OpenToWrite(target, kForEverybody));
    if (!output)
        return -1;

    struct stat state {};
    const bool sizeIsKnown = stat(source, &state) == 0;
    const Copied copied = CopyBlocks(input.Get(), output.Get(), AtWriteError::Stop);
    if (!copied.written || (sizeIsKnown && copied.bytes != state.st_size))
        return -1;
    CopyTimes(source, target);
    return 0;
}

bool FileCopy(const char* source, const char* target)
{
    const UniqueFd input(OpenToRead(source));
    if (!input)
        return false;
    const UniqueFd output(OpenToWrite(target, kForTheOwner));
    return output && CopyBlocks(input.Get(), output.Get(), AtWriteError::GoOn).written;
}

bool FileCompare(const char* first, const char* second)
{
    const UniqueFd left(OpenToRead(first));
    const UniqueFd right(OpenToRead(second));
    if (!left || !right)
        return false;
    for (;;) {
        char leftBlock[kBlockSize];
        char rightBlock[kBlockSize];
        const ssize_t count = read(left.Get(), leftBlock, sizeof leftBlock);
        if (count <= 0)
            return true;
        const auto size = static_cast<std::size_t>(count);
        if (read(right.Get(), rightBlock, size) != count ||
            std::memcmp(leftBlock, rightBlock, size) != 0)
            return false;
    }
}

bool CheckDiskFree(const char* pathOnTarget, const char* file)
{
    struct statfs target {};
    struct stat state {};
    if (statfs(pathOnTarget, &target) != 0 || stat(file, &state) != 0)
        return true;
    const std::uint64_t free =
        static_cast<std::uint64_t>(target.f_bavail) * static_cast<std::uint64_t>(target.f_bsize);
    return free > static_cast<std::uint64_t>(state.st_size);
}
