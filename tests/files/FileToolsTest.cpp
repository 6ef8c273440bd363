#include <set>
#include <string>
#include <utility>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utime.h>

#include <gtest/gtest.h>

#include "FileTools.h"
#include "HexText.h"
#include "TempDir.h"

namespace {

// The file system that the tools see.
struct {
    fsblkcnt_t freeBlocks = 0;
    int result = 0;
    bool cutsWrite = false;  // the next one takes 100 bytes
} medium;

// No test leaks a descriptor.
struct FileTools : testing::Test {
    void TearDown() override { EXPECT_EQ(ListDescriptors(), before); }

    TempDir dir;
    std::set<std::string> before = ListDescriptors();
};

}  // namespace

// These two replace libc's in this program.
extern "C" int statfs(const char*, struct statfs* state) noexcept
{
    state->f_bsize = 4096;
    state->f_bavail = medium.freeBlocks;
    state->f_bfree = medium.freeBlocks + 100;
    return medium.result;
}

extern "C" ssize_t write(int descriptor, const void* data, std::size_t size)
{
    return syscall(SYS_write, descriptor, data,
                   std::exchange(medium.cutsWrite, false) ? 100 : size);
}

TEST_F(FileTools, FindAndDeleteFiles)
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
    // Each copy is shorter than the one that it replaces.
    for (const std::size_t size : {5000U, 513U, 512U, 1U, 0U}) {
        SCOPED_TRACE(size);
        const std::string source = dir.Write("source", Firmware(size));
        const utimbuf times = {2000000000, 1100000000};
        utime(source.c_str(), &times);
        EXPECT_EQ(CopyFile(source.c_str(), dir.Path("timed").c_str()), 0);
        EXPECT_TRUE(FileCopy(source.c_str(), dir.Path("plain").c_str()));

        struct stat state {};
        stat(dir.Path("timed").c_str(), &state);
        EXPECT_EQ(state.st_atime, times.actime);
        EXPECT_EQ(state.st_mtime, times.modtime);
        stat(dir.Path("plain").c_str(), &state);
        EXPECT_NE(state.st_mtime, times.modtime);
        EXPECT_EQ(state.st_mode & 0777U, 0600U);
        EXPECT_EQ(dir.Read("timed"), Firmware(size));
        EXPECT_EQ(dir.Read("plain"), Firmware(size));
    }
}

TEST_F(FileTools, ReportFailedCopy)
{
    const std::string bytes = Firmware(700);
    const std::string source = dir.Write("source", bytes);
    const std::string target = dir.Path("target");
    EXPECT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
    for (const std::string& refusing :
         {dir.Path("no/target"), dir.Path("pipe"), std::string("/dev/full")}) {
        EXPECT_EQ(CopyFile(source.c_str(), refusing.c_str()), -1) << refusing;
        EXPECT_FALSE(FileCopy(source.c_str(), refusing.c_str())) << refusing;
    }
    for (const std::string& unreadable : {dir.Path("no"), dir.Path(), dir.Path("pipe")}) {
        EXPECT_EQ(CopyFile(unreadable.c_str(), target.c_str()), -1) << unreadable;
        EXPECT_FALSE(FileCopy(unreadable.c_str(), target.c_str())) << unreadable;
        EXPECT_FALSE(FileCompare(unreadable.c_str(), source.c_str())) << unreadable;
    }
    EXPECT_FALSE(dir.Exists("target"));

    medium.cutsWrite = true;
    EXPECT_EQ(CopyFile(source.c_str(), target.c_str()), -1);
    EXPECT_EQ(dir.Read("target"), bytes.substr(0, 100)) << "stops at once";
    medium.cutsWrite = true;
    EXPECT_FALSE(FileCopy(source.c_str(), target.c_str()));
    EXPECT_EQ(dir.Read("target"), bytes.substr(0, 100) + bytes.substr(512)) << "goes on";
}

TEST_F(FileTools, CompareUpToEndOfFirstFile)
{
    const std::string whole = dir.Write("whole", Firmware(1025));
    const std::string prefix = dir.Write("prefix", Firmware(1000));
    const std::string changed = dir.Write("changed", Firmware(1024) + "x");
    EXPECT_TRUE(FileCompare(whole.c_str(), whole.c_str()));
    EXPECT_TRUE(FileCompare(prefix.c_str(), whole.c_str()));
    EXPECT_FALSE(FileCompare(dir.Path("missing").c_str(), whole.c_str()));
    for (const std::string& other : {prefix, changed, dir.Path("missing")})
        EXPECT_FALSE(FileCompare(whole.c_str(), other.c_str())) << other;
}

TEST_F(FileTools, RequireMoreFreeSpaceThanFileSize)
{
    EXPECT_TRUE(CheckDiskFree("/mnt/usb", dir.Path("missing").c_str())) << "nothing to measure";
    const struct {
        const char* name;
        std::size_t size;
        fsblkcnt_t freeBlocks;
        int result;
        bool fits;
    } rows[] = {{"exactly the free space", 8192, 2, 0, false},
                {"a byte to spare", 8191, 2, 0, true},
                {"over 32 bits", 8192, 1U << 20, 0, true},
                {"no such medium", 8192, 0, -1, true}};
    for (const auto& row : rows) {
        medium = {row.freeBlocks, row.result, false};
        const std::string file = dir.Write(row.name, Firmware(row.size));
        EXPECT_EQ(CheckDiskFree("/mnt/usb", file.c_str()), row.fits) << row.name;
    }
}
