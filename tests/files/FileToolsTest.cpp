#include <csignal>
#include <cstdint>
#include <string>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
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

// Files end at `bytes` while it lives: the write that crosses the limit is short.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &saved);
        rlimit limit = saved;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, handler);
    }

private:
    rlimit saved{};
    void (*handler)(int);
};

}  // namespace

// Takes the place of libc's in this program.
extern "C" int statfs(const char*, struct statfs* state) noexcept
{
    state->f_bsize = 4096;
    state->f_bavail = medium.freeBlocks;
    state->f_bfree = medium.freeBlocks + 100;
    return medium.result;
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
        const utimbuf times = {1000000000, 1100000000};
        utime(source.c_str(), &times);
        dir.Write("timed", std::string(9000, 'x'));

        EXPECT_EQ(CopyFile(source.c_str(), dir.Path("timed").c_str()), 0);
        EXPECT_TRUE(FileCopy(source.c_str(), dir.Path("plain").c_str()));

        EXPECT_EQ(dir.Read("timed"), dir.Read("source"));
        EXPECT_EQ(dir.Read("plain"), dir.Read("source"));
        struct stat timed {};
        struct stat plain {};
        stat(dir.Path("timed").c_str(), &timed);
        stat(dir.Path("plain").c_str(), &plain);
        EXPECT_EQ(timed.st_mtime, times.modtime);
        EXPECT_NE(plain.st_mtime, times.modtime);
        EXPECT_EQ(plain.st_mode & 0777U, 0600U);
    }
}

TEST_F(FileTools, ReportACopyThatFails)
{
    const std::string source = File("source", 700);
    const std::string target = dir.Path("target");
    const std::string nowhere = dir.Path("no/target");
    const std::string pipe = dir.Path("pipe");
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const struct {
        const char* name;
        std::string source, target;
    } rows[] = {{"no source", dir.Path("missing"), target},
                {"no target", source, nowhere},
                {"a pipe without a reader", source, pipe},
                {"full device", source, "/dev/full"}};
    for (const auto& row : rows) {
        EXPECT_EQ(CopyFile(row.source.c_str(), row.target.c_str()), -1) << row.name;
        EXPECT_FALSE(FileCopy(row.source.c_str(), row.target.c_str())) << row.name;
    }
    EXPECT_FALSE(dir.Exists("target"));
    EXPECT_EQ(CopyFile(dir.Path().c_str(), target.c_str()), -1) << "nothing can be read";

    const FileSizeLimit limit(600);
    EXPECT_EQ(CopyFile(source.c_str(), target.c_str()), -1) << "last block cut short";
    EXPECT_EQ(dir.Read("target").size(), 600U);
    EXPECT_FALSE(FileCopy(source.c_str(), target.c_str())) << "last block cut short";
}

TEST_F(FileTools, CompareByTheFirstFile)
{
    const std::string whole = File("whole", 1300);
    const std::string prefix = File("prefix", 1030);
    std::string bytes = dir.Read("whole");
    bytes[1299] ^= 1;
    const std::string changed = dir.Write("changed", bytes);
    const struct {
        const char* name;
        std::string first, second;
        bool same;
    } rows[] = {{"same", whole, whole, true},
                {"prefix first", prefix, whole, true},
                {"prefix second", dir.Write("many", std::string(1300, 'x')),
                 dir.Write("few", std::string(1030, 'x')), false},
                {"last byte differs", whole, changed, false},
                {"empty first", dir.Write("empty", ""), whole, true},
                {"missing first", dir.Path("missing"), whole, false},
                {"missing second", whole, dir.Path("missing"), false}};
    for (const auto& row : rows)
        EXPECT_EQ(FileCompare(row.first.c_str(), row.second.c_str()), row.same) << row.name;
}

TEST_F(FileTools, NeedMoreFreeSpaceThanTheFileTakes)
{
    const std::string exact = File("exact", 8192);
    const std::string smaller = File("smaller", 8191);
    const std::string missing = dir.Path("missing");
    const struct {
        const char* name;
        std::string file;
        fsblkcnt_t freeBlocks;
        int result;
        bool fits;
    } rows[] = {{"exactly the free space", exact, 2, 0, false},
                {"a byte to spare", smaller, 2, 0, true},
                {"over 32 bits", exact, 1U << 20, 0, true},
                {"no such file", missing, 0, 0, true},
                {"no such medium", exact, 0, -1, true}};
    for (const auto& row : rows) {
        medium = {row.freeBlocks, row.result};
        EXPECT_EQ(CheckDiskFree("/mnt/usb", row.file.c_str()), row.fits) << row.name;
    }
}
