#include "FileTools.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utime.h>

#include "FileBytes.h"
#include "OutputFile.h"
#include "UniqueFd.h"

namespace {

constexpr std::size_t kCopyBlock = 512;  // bytes of one read and write

enum class AtWriteError { Stop, GoOn };

struct Copied {
    std::int64_t bytes = 0;  // of the writes that didn't fail
    bool isWritten = true;   // no write failed
};

// A read error ends the copy as the end of the source does.
Copied CopyBlocks(int source, int target, AtWriteError atWriteError)
{
    Copied copied;
    char block[kCopyBlock];
    while (copied.isWritten || atWriteError == AtWriteError::GoOn) {
        const ssize_t count = read(source, block, sizeof block);
        if (count <= 0)
            break;
        if (WriteWhole(target, block, count))
            copied.bytes += count;
        else
            copied.isWritten = false;
    }
    return copied;
}

// Without them the copy is still good, so no failure is reported.
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

// True when the next bytes of the file are those of the block. One read brings all of them: that of
// a regular file is short only at its end. A device may return fewer bytes, and then counts as
// different.
bool ContinuesWith(int file, const char* block, ssize_t size)
{
    char found[kCopyBlock];
    return read(file, found, size) == size && std::equal(block, block + size, found);
}

}  // namespace

// True for anything that can be opened.
bool FileExists(const char* path)
{
    const UniqueFd file(open(path, O_RDONLY | kOpenFlags));
    return file.Get() >= 0;
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
    const UniqueFd output(CreateOutputFile(target, kForEverybody));
    if (!output)
        return -1;

    // Measured before the copy: a source that grows meanwhile isn't the one that was requested.
    struct stat state {};
    const bool hasSize = stat(source, &state) == 0;
    const Copied copied = CopyBlocks(input.Get(), output.Get(), AtWriteError::Stop);
    if (!copied.isWritten || (hasSize && copied.bytes != state.st_size))
        return -1;
    CopyTimes(source, target);
    return 0;
}

bool FileCopy(const char* source, const char* target)
{
    const UniqueFd input(OpenToRead(source));
    if (!input)
        return false;
    const UniqueFd output(CreateOutputFile(target));
    return output && CopyBlocks(input.Get(), output.Get(), AtWriteError::GoOn).isWritten;
}

bool FileCompare(const char* first, const char* second)
{
    const UniqueFd left(OpenToRead(first));
    const UniqueFd right(OpenToRead(second));
    if (!left || !right)
        return false;
    for (;;) {
        char block[kCopyBlock];
        const ssize_t count = read(left.Get(), block, sizeof block);
        if (count <= 0)
            return true;
        if (!ContinuesWith(right.Get(), block, count))
            return false;
    }
}

bool CheckDiskFree(const char* pathOnTarget, const char* file)
{
    // A copy that may fit is worth the attempt, so what can't be measured counts as room enough.
    struct statfs target {};
    struct stat state {};
    if (statfs(pathOnTarget, &target) != 0 || stat(file, &state) != 0)
        return true;
    // In 64 bits, since the product passes 32 of them on any medium over 4 GiB.
    const std::uint64_t blocks = target.f_bavail;
    const std::uint64_t free = blocks * target.f_bsize;
    const std::uint64_t size = state.st_size;
    return free > size;
}
