#pragma once

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

// How many descriptors the process has open.
inline std::ptrdiff_t OpenDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// All bytes of the file; empty when it isn't there. In one read, since whole flash images and
// transcripts are read again and again.
inline std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

// A directory of the test's own, gone with all that is in it at the end of the scope. Names are
// relative to it.
class TempDir {
public:
    TempDir()
    {
        const char* const parent = std::getenv("TMPDIR");
        directory = (parent == nullptr ? std::string("/tmp") : parent) + "/diag-XXXXXX";
        if (mkdtemp(directory.data()) == nullptr)
            throw std::runtime_error("no temporary directory");
    }
    ~TempDir()
    {
        std::error_code ignored;
        if (!kept)
            std::filesystem::remove_all(directory, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Leaves it on the disk.
    void Keep() { kept = true; }

    std::string Path(const std::string& name = "") const
    {
        return name.empty() ? directory : directory + "/" + name;
    }

    // Writes the bytes and returns the path.
    std::string Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return Path(name);
    }

    std::string Read(const std::string& name) const { return ReadFile(Path(name)); }

    bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }

private:
    std::string directory;
    bool kept = false;
};
