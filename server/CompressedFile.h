#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A compressed image on a medium, read, compared with the checksum next to it, and expanded in
// memory.
struct CompressedFile {
    static constexpr std::int64_t kLargestSum = 4096;  // bytes; a line has some 30

    explicit CompressedFile(const std::string& path);

    // True for the name of a compressed image.
    static bool HasItsName(const std::string& path);

    // The path of the checksum of the image at `path`.
    static std::string SumPath(const std::string& path);

    std::string hexText;             // the expanded image; empty with a problem
    std::string problem;             // a sentence; empty for a file that can be used
    std::vector<std::string> notes;  // that there is no checksum to compare it with
    bool isMissing = false;          // there is no file that may be opened

private:
    void CompareWithSum(const std::string& path, std::string_view packed);
    void Expand(const std::string& path, std::string_view packed);
};
