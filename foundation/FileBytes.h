#pragma once

#include <cstddef>
#include <memory>

// The whole of a file in one buffer.
struct FileBytes {
    std::unique_ptr<unsigned char[]> data;
    std::size_t size = 0;
};

// Reads everything that the open file `descriptor` holds, from its first byte. False when the size
// can't be told, is over 2 GiB - 1 (the counts of an image are signed 32 bits), when there is no
// memory for it, or when fewer bytes than the size come.
bool ReadWholeFile(int descriptor, FileBytes& bytes);
