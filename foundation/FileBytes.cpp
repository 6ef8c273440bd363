#include "FileBytes.h"

#include <cerrno>
#include <new>
#include <utility>

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include "UniqueFd.h"

int OpenToRead(const char* path)
{
    // The test follows the opening, since the path may lead elsewhere a moment later.
    UniqueFd file(open(path, O_RDONLY | kOpenFlags));
    struct stat state {};
    if (!file || fstat(file.Get(), &state) != 0)
        return -1;
    if (!S_ISREG(state.st_mode) && !S_ISCHR(state.st_mode)) {
        errno = 0;  // the refusal is this program's own
        return -1;
    }
    // Only the opening mustn't wait: a terminal's reader waits for what is typed.
    return fcntl(file.Get(), F_SETFL, 0) == 0 ? file.Release() : -1;
}

bool ReadWholeFile(int descriptor, FileBytes& bytes, std::int64_t most)
{
    const off_t end = lseek(descriptor, 0, SEEK_END);
    if (end > most)
        errno = EFBIG;
    if (end < 0 || end > most || lseek(descriptor, 0, SEEK_SET) < 0)
        return false;
    const auto size = static_cast<std::size_t>(end);

    // A file that a medium offers must not end the process: without memory for all of its bytes,
    // those of a sparse file included, it counts as unreadable.
    std::unique_ptr<unsigned char[]> data(new (std::nothrow) unsigned char[size]);
    if (!data)
        return false;

    std::size_t taken = 0;
    while (taken < size) {
        const ssize_t count = read(descriptor, data.get() + taken, size - taken);
        // Nothing more comes of a file that has become shorter since it was measured.
        if (count == 0)
            errno = EIO;
        if (count <= 0)
            return false;
        taken += count;
    }
    // Only a file that is complete replaces what the caller had.
    bytes.data = std::move(data);
    bytes.size = size;
    return true;
}

bool ReadWholeFile(const char* path, FileBytes& bytes, std::int64_t most)
{
    const UniqueFd file(OpenToRead(path));
    return file && ReadWholeFile(file.Get(), bytes, most);
}
