#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

// Ends the target with a report when something that must hold doesn't.
inline void Require(bool holds)
{
    if (!holds)
        std::abort();
}

// A file in memory with a path, for operations that take one.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& bytes = "")
        : descriptor(memfd_create("input", 0)), path("/proc/self/fd/" + std::to_string(descriptor))
    {
        Require(write(descriptor, bytes.data(), bytes.size()) ==
                static_cast<ssize_t>(bytes.size()));
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    const char* Path() const { return path.c_str(); }
    std::string Bytes() const
    {
        std::string bytes(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
        Require(pread(descriptor, bytes.data(), bytes.size(), 0) >= 0);
        return bytes;
    }

private:
    int descriptor;
    std::string path;
};

// Takes an input apart from its front.
class Feed {
public:
    explicit Feed(std::string input) : text(std::move(input)) {}

    bool IsEmpty() const { return text.empty(); }
    std::uint8_t Byte() { return static_cast<std::uint8_t>(Text(1)[0]); }
    std::string Text(std::size_t most)
    {
        std::string taken = text.substr(0, most);
        text.erase(0, most);
        return taken;
    }
    // Up to a line feed, which is taken and dropped.
    std::string Line()
    {
        std::string line = Text(text.find('\n'));
        text.erase(0, 1);
        return line;
    }

private:
    std::string text;
};
