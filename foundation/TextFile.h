#pragma once

#include <cstdio>
#include <memory>

#include "FileBytes.h"
#include "UniqueFd.h"

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// The one owner of a stream; closes it on every way out of a scope.
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

// A text file that is written. Its owner closes it by leaving the scope.
class TextWriter {
public:
    // `mode` is one of fopen's.
    TextWriter(const char* path, const char* mode) : file(std::fopen(path, mode)) {}

    // False when the file couldn't be opened.
    explicit operator bool() const { return file != nullptr; }

    // False when the text can't be handed to the stream. What the disk refuses later isn't seen.
    bool Write(const char* text) const { return std::fputs(text, file.get()) >= 0; }

private:
    UniqueFile file;  // null when it couldn't be opened
};

// A text file read from its first line, in pieces of a bounded length.
class PieceReader {
public:
    static constexpr int kPieceSize = 1024;  // of the longest piece and its NUL

    explicit PieceReader(const char* path) : file(OpenStream(path)) {}

    // False when the file couldn't be opened; OpenToRead lists what it refuses.
    explicit operator bool() const { return file != nullptr; }

    // The next line with its line end, or a full piece of a longer one; null at the end of the
    // file.
    const char* Next() { return std::fgets(piece, sizeof piece, file.get()); }

    // Closes the file before the end of the scope. The last piece stays.
    void Close() { file.reset(); }

private:
    // Null when there can be no stream; no descriptor stays open then.
    static std::FILE* OpenStream(const char* path)
    {
        UniqueFd descriptor(OpenToRead(path));
        std::FILE* const stream = descriptor ? fdopen(descriptor.Get(), "r") : nullptr;
        if (stream != nullptr)
            descriptor.Release();
        return stream;
    }

    UniqueFile file;              // null when it couldn't be opened
    char piece[kPieceSize] = {};  // the last piece, ended by a NUL
};
