#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

// A directory of the test's own, gone with all that is in it at the end of the scope. Names are
// relative to it.
class TempDir {
public:
    TempDir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "diag-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no temporary directory");
        directory = pattern;
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

    // All bytes of the file; empty when it isn't there.
    std::string Read(const std::string& name) const
    {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }

private:
    std::string directory;
    bool kept = false;
};
