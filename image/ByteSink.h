#pragma once

#include <cstddef>
#include <string>

#include "OutputFile.h"

// Where a conversion puts its bytes: a file on the unit, a string in a program that has all of the
// image in memory.
class ByteSink {
public:
    // False when the bytes can't be taken.
    virtual bool Write(const void* data, std::size_t size) = 0;

protected:
    ~ByteSink() = default;
};

// An open file; each call is one write.
class FileSink final : public ByteSink {
public:
    explicit FileSink(int open) : descriptor(open) {}
    bool Write(const void* data, std::size_t size) override
    {
        return WriteWhole(descriptor, data, size);
    }

private:
    int descriptor;  // the caller's
};

// A string of at most `limit` bytes.
class StringSink final : public ByteSink {
public:
    explicit StringSink(std::size_t limit = std::string::npos) : most(limit) {}
    bool Write(const void* data, std::size_t size) override
    {
        if (size > most - bytes.size())
            return false;
        bytes.append(static_cast<const char*>(data), size);
        return true;
    }

    std::string bytes;

private:
    std::size_t most;
};
