#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>

#include "FileBytes.h"

// The numbers of the open descriptors of this process, or of the one with the id.
inline std::set<std::string> ListDescriptors(const std::string& id = "self")
{
    std::set<std::string> numbers;
    for (const auto& descriptor : std::filesystem::directory_iterator("/proc/" + id + "/fd"))
        numbers.insert(descriptor.path().filename());
    return numbers;
}

// All bytes of the file; empty when it doesn't exist.
inline std::string ReadFile(const std::string& path)
{
    FileBytes bytes;
    ReadWholeFile(path.c_str(), bytes);
    return std::string(bytes.Text());
}

// Makes a unit in the empty directory, as `simunit new` does.
void CopyNewUnit(const std::string& root);

// A directory of a test, removed with its content at the end of the scope. Names are relative to
// it, also those with a slash in front, such as a path of the unit.
class TempDir {
public:
    TempDir()
    {
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

    // Doesn't remove it at the end.
    void Keep() { kept = true; }

    std::string Path(const std::string& name = "") const
    {
        return directory + (name.empty() || name[0] == '/' ? "" : "/") + name;
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
    std::string directory = std::filesystem::temp_directory_path() / "diag-XXXXXX";
    bool kept = false;
};
