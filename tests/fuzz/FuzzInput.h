#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

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
    MemoryFile() : descriptor(memfd_create("input", 0)) { Require(descriptor >= 0); }
    MemoryFile(const std::uint8_t* data, std::size_t size) : MemoryFile()
    {
        Require(write(descriptor, data, size) == static_cast<ssize_t>(size));
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

    std::string Bytes() const
    {
        std::string bytes(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
        Require(pread(descriptor, bytes.data(), bytes.size(), 0) ==
                static_cast<ssize_t>(bytes.size()));
        return bytes;
    }

private:
    int descriptor;
};

// Takes an input apart from its front.
class Feed {
public:
    Feed(const std::uint8_t* bytes, std::size_t count) : data(bytes), left(count) {}

    bool IsEmpty() const { return left == 0; }
    std::uint8_t Byte() { return left == 0 ? std::uint8_t{0} : (--left, *data++); }
    std::string Text(std::size_t most)
    {
        std::string text;
        while (text.size() < most && left > 0)
            text.push_back(static_cast<char>(Byte()));
        return text;
    }
    // Up to a line feed, which is taken and dropped.
    std::string Line()
    {
        std::string line;
        while (left > 0) {
            const char c = static_cast<char>(Byte());
            if (c == '\n')
                break;
            line.push_back(c);
        }
        return line;
    }

private:
    const std::uint8_t* data;
    std::size_t left;
};
