#include "Files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ImageFile.h"
#include "UniqueFd.h"

namespace {

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
    if (size <= kLargestInput) {
        bytes.reserve(size);
        if (!ReadAll(file.Get(), bytes))
            return CannotRead(path, std::strerror(errno));
    }
    const bool isTooLarge = std::max(size, bytes.size()) > kLargestInput;
    return isTooLarge ? CannotRead(path, kTooLarge) : Outcome();
}

bool ReadAll(int descriptor, std::string& bytes)
{
    char piece[0x10000];
    ssize_t count = 0;
    while (bytes.size() <= kLargestInput && (count = read(descriptor, piece, sizeof(piece))) > 0)
        bytes.append(piece, static_cast<std::size_t>(count));
    return count >= 0;
}
