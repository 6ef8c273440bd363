#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// The one owner of a stream; closes it on every way out of a scope.
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

// A text file read from its first line, in pieces of a bounded length.
class PieceReader {
public:
    explicit PieceReader(const char* path) : file(std::fopen(path, "r")) {}

    // False when the file couldn't be opened.
    explicit operator bool() const { return file != nullptr; }

    // The next line with its line end, or 1,023 bytes of a longer one; null at the end of the file.
    const char* Next() { return std::fgets(piece, sizeof piece, file.get()); }

private:
    UniqueFile file;
    char piece[1024];
};
