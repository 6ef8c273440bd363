#pragma once

#include <cstdlib>
#include <string>

#include <sys/mman.h>

#include "OutputFile.h"
#include "TempDir.h"
#include "UniqueFd.h"

// Ends the target with a report when a condition is false.
inline void Require(bool condition)
{
    if (!condition)
        std::abort();
}

// A file in memory with a path, for operations that take one.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& bytes = "")
    {
        Require(WriteWhole(file.Get(), bytes.data(), bytes.size()));
    }
    const char* Path() const { return path.c_str(); }
    std::string Bytes() const { return ReadFile(path); }

private:
    UniqueFd file{memfd_create("input", MFD_CLOEXEC)};
    std::string path = "/proc/self/fd/" + std::to_string(file.Get());
};

// These three remove a part from the front of an input.

inline std::string TakeText(std::string& input, std::size_t most)
{
    std::string text = input.substr(0, most);
    input.erase(0, most);
    return text;
}

// 0 at the end of the input.
inline unsigned char TakeByte(std::string& input)
{
    return static_cast<unsigned char>(TakeText(input, 1)[0]);
}

// Up to a line feed, which is removed, too.
inline std::string TakeLine(std::string& input)
{
    std::string line = TakeText(input, input.find('\n'));
    input.erase(0, 1);
    return line;
}
