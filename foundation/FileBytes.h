#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

// All bytes of a file in one buffer.
struct FileBytes {
    std::unique_ptr<unsigned char[]> data;  // null before a file has been read
    std::size_t size = 0;                   // bytes

    std::string_view Text() const { return {reinterpret_cast<const char*>(data.get()), size}; }
};

// Opens `path` for reading. The descriptor, which the caller owns, or -1: also for what is neither
// a regular file nor a character device (errno is 0 then). A directory has no bytes, and a pipe
// would let its reader wait for as long as no process writes to it, or look empty.
int OpenToRead(const char* path);

// The counts of an image are signed 32 bits.
inline constexpr std::int64_t kLargestFile = INT32_MAX;

// Reads all of the open file `descriptor`, from its first byte. False when its size can't be found
// out or is over `most` (with EFBIG), when there is no memory for it, or when fewer bytes than the
// size come; errno has the reason.
bool ReadWholeFile(int descriptor, FileBytes& bytes, std::int64_t most = kLargestFile);

// The same for the file at `path`. False also for one that can't be opened.
bool ReadWholeFile(const char* path, FileBytes& bytes, std::int64_t most = kLargestFile);
