#include <algorithm>
#include <cstdint>
#include <string>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utime.h>

#include <gtest/gtest.h>

#include "Descriptors.h"
#include "FileTools.h"
#include "TempDir.h"

namespace {

// The file system that the tools see.
struct {
    fsblkcnt_t freeBlocks = 0;
    int result = 0;
    std::size_t nextWrite = SIZE_MAX;  // the most bytes that the next write takes
} medium;

// Every test ends with as many open descriptors as it began with.
class FileTools : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(OpenDescriptors(), before); }

    // The path of a file of that many bytes, no two neighbouring blocks of it alike.
    std::string File(const char* name, std::size_t size)
    {
        std::string bytes;
        while (bytes.size() < size)
            bytes += static_cast<char>(bytes.size() % 251);
        return dir.Write(name, bytes);
    }

    TempDir dir;
    std::ptrdiff_t before = OpenDescriptors();
};

}  // namespace

// These two take the place of libc's in this program.
extern "C" int statfs(const char*, struct statfs* state) noexcept
{
    state->f_bsize = 4096;
    state->f_bavail = medium.freeBlocks;
    state->f_bfree = medium.freeBlocks + 100;
    return medium.result;
}

extern "C" ssize_t write(int descriptor, const void* data, std::size_t size)
{
    const std::size_t taken = std::min(size, medium.nextWrite);
    medium.nextWrite = SIZE_MAX;
    return syscall(SYS_write, descriptor, data, taken);
}

TEST_F(FileTools, SeeAndDeleteFiles)
{
    const std::string path = dir.Write("a", "");
    EXPECT_TRUE(FileExists(path.c_str()));
    EXPECT_TRUE(FileExistsX(dir.Path().c_str())) << "a directory opens, too";
    EXPECT_TRUE(DeleteFile(path.c_str()));
    EXPECT_FALSE(FileExists(path.c_str()));
    EXPECT_FALSE(FileDelete(path.c_str()));
}

TEST_F(FileTools, CopyAllBytes)
{
    for (const std::size_t size : {0U, 1U, 512U, 513U, 5000U}) {
        SCOPED_TRACE(size);
        const std::string source = File("source", size);
        const utimbuf times = {2000000000, 1100000000};
        utime(source.c_str(), &times);
        dir.Write("timed", std::string(9000, 'x'));
        EXPECT_EQ(CopyFile(source.c_str(), dir.Path("timed").c_str()), 0);
        EXPECT_TRUE(FileCopy(source.c_str(), dir.Path("plain").c_str()));

        struct stat timed {};
        struct stat plain {};
        stat(dir.Path("timed").c_str(), &timed);
        stat(dir.Path("plain").c_str(), &plain);
        EXPECT_EQ(timed.st_atime, times.actime);
        EXPECT_EQ(timed.st_mtime, times.modtime);
        EXPECT_NE(plain.st_mtime, times.modtime);
        EXPECT_EQ(plain.st_mode & 0777U, 0600U);
        EXPECT_EQ(dir.Read("timed"), dir.Read("source"));
        EXPECT_EQ(dir.Read("plain"), dir.Read("source"));
    }
}

TEST_F(FileTools, ReportACopyThatFails)
{
    const std::string source = File("source", 700);
    const std::string target = dir.Path("target");
    const std::string pipe = dir.Path("pipe");
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(CopyFile(dir.Path("no").c_str(), target.c_str()), -1);
    EXPECT_FALSE(FileCopy(dir.Path("no").c_str(), target.c_str()));
    EXPECT_FALSE(dir.Exists("target"));
    for (const std::string& refusing : {dir.Path("no/target"), pipe, std::string("/dev/full")}) {
        EXPECT_EQ(CopyFile(source.c_str(), refusing.c_str()), -1) << refusing;
        EXPECT_FALSE(FileCopy(source.c_str(), refusing.c_str())) << refusing;
    }
    EXPECT_EQ(CopyFile(dir.Path().c_str(), target.c_str()), -1) << "a directory";

    const std::string bytes = dir.Read("source");
    medium.nextWrite = 100;
    EXPECT_EQ(CopyFile(source.c_str(), target.c_str()), -1);
    EXPECT_EQ(dir.Read("target"), bytes.substr(0, 100)) << "stops at once";
    medium.nextWrite = 100;
    EXPECT_FALSE(FileCopy(source.c_str(), target.c_str()));
    EXPECT_EQ(dir.Read("target"), bytes.substr(0, 100) + bytes.substr(512)) << "goes on";
}

TEST_F(FileTools, CompareByTheFirstFile)
{
    const std::string whole = File("whole", 1025);
    const std::string changed = dir.Write("changed", dir.Read("whole").replace(1024, 1, "x"));
    const std::string prefix = File("prefix", 1000);
    const std::string missing = dir.Path("missing");
    const struct {
        const char* name;
        std::string first, second;
        bool same;
    } rows[] = {{"same", whole, whole, true},
                {"prefix first", prefix, whole, true},
                {"prefix second", whole, prefix, false},
                {"last byte differs", whole, changed, false},
                {"missing first", missing, whole, false},
                {"missing second", whole, missing, false}};
    for (const auto& row : rows)
        EXPECT_EQ(FileCompare(row.first.c_str(), row.second.c_str()), row.same) << row.name;
}

TEST_F(FileTools, NeedMoreFreeSpaceThanTheFileTakes)
{
    const std::string exact = File("exact", 8192);
    const struct {
        const char* name;
        std::string file;
        fsblkcnt_t freeBlocks;
        int result;
        bool fits;
    } rows[] = {{"exactly the free space", exact, 2, 0, false},
                {"a byte to spare", File("smaller", 8191), 2, 0, true},
                {"over 32 bits", exact, 1U << 20, 0, true},
                {"no such file", dir.Path("missing"), 0, 0, true},
                {"no such medium", exact, 0, -1, true}};
    for (const auto& row : rows) {
        medium = {row.freeBlocks, row.result, SIZE_MAX};
        EXPECT_EQ(CheckDiskFree("/mnt/usb", row.file.c_str()), row.fits) << row.name;
    }
}
