#pragma once

#include <cstdio>
#include <memory>

#include "FileBytes.h"
#include "OutputFile.h"
#include "UniqueFd.h"

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// The one owner of a stream; closes it on every way out of a scope.
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

// Makes the descriptor a stream, null when there can be none; no descriptor stays open then. `mode`
// is one of fopen's.
inline UniqueFile OpenStream(UniqueFd descriptor, const char* mode)
{
    UniqueFile stream(descriptor ? fdopen(descriptor.Get(), mode) : nullptr);
    if (stream)
        descriptor.Release();
    return stream;
}

// A text file that is written. Its owner closes it by leaving the scope.
class TextWriter {
public:
    // What becomes of the text that the file has. A missing file is created with the permission
    // bits 0666 in either case.
    enum class Old { Removed, Kept };

    TextWriter(const char* path, Old old) : file(OpenStream(Open(path, old), ModeOf(old))) {}

    // False when the file couldn't be opened. A pipe that nobody reads can't.
    explicit operator bool() const { return file != nullptr; }

    // False when the text can't be handed to the stream. What the disk refuses later isn't seen.
    bool Write(const char* text) const { return std::fputs(text, file.get()) >= 0; }

private:
    static UniqueFd Open(const char* path, Old old)
    {
        const int flags = old == Old::Kept ? O_RDWR | O_APPEND : O_WRONLY | O_TRUNC;
        UniqueFd file(open(path, flags | O_CREAT | kOpenFlags, kForEverybody));
        // Only the opening mustn't wait: who reads a pipe slowly gets all of the text.
        if (file && fcntl(file.Get(), F_SETFL, flags & O_APPEND) != 0)
            file.Reset();
        return file;
    }

    static const char* ModeOf(Old old) { return old == Old::Kept ? "a+" : "w"; }

    UniqueFile file;  // null when it couldn't be opened
};

// A text file read from its first line, in pieces of a bounded length.
class PieceReader {
public:
    static constexpr int kPieceSize = 1024;  // of the longest piece and its NUL

    explicit PieceReader(const char* path) : file(OpenStream(UniqueFd(OpenToRead(path)), "r")) {}

    // False when the file couldn't be opened; OpenToRead lists what it refuses.
    explicit operator bool() const { return file != nullptr; }

    // The next line with its line end, or a full piece of a longer one; null at the end of the
    // file.
    const char* Next() { return std::fgets(piece, sizeof piece, file.get()); }

    // Closes the file before the end of the scope. The last piece stays.
    void Close() { file.reset(); }

private:
    UniqueFile file;              // null when it couldn't be opened
    char piece[kPieceSize] = {};  // the last piece, ended by a NUL
};
