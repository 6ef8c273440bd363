// Files that are copied and compared, logs, and files that are replaced as a whole.

#include <cerrno>
#include <tuple>
#include <utility>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utime.h>

#include <gtest/gtest.h>

#include "FileTools.h"
#include "HexText.h"
#include "Log.h"
#include "TempDir.h"
#include "WholeFile.h"

namespace fs = std::filesystem;

namespace {

// The file system that the product sees.
struct {
    fsblkcnt_t freeBlocks = 0;
    int result = 0;
    bool cutsWrite = false;  // the next one takes 100 bytes
    bool fails = false;      // it keeps other bytes than were written
} medium;

// No test leaks a descriptor.
struct Files : testing::Test {
    void TearDown() override { EXPECT_EQ(ListDescriptors(), before); }

    TempDir dir;
    std::set<std::string> before = ListDescriptors();
};

}  // namespace

// These four replace libc's in this program.
extern "C" {

int statfs(const char*, struct statfs* state) noexcept
{
    state->f_bsize = 4096;
    state->f_bavail = medium.freeBlocks;
    state->f_bfree = medium.freeBlocks + 100;
    return medium.result;
}

ssize_t write(int descriptor, const void* data, std::size_t size)
{
    return syscall(SYS_write, descriptor, data,
                   std::exchange(medium.cutsWrite, false) ? 100 : size);
}

int fsync(int descriptor)
{
    if (medium.fails && pwrite(descriptor, "X", 1, 0) != 1)
        return -1;
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

int gettimeofday(timeval* now, void*) noexcept
{
    *now = {1142327107, 0};
    return 0;
}

}  // extern "C"

TEST_F(Files, AreCopiedInFullAndDeleted)
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
    const std::string plain = dir.Path("plain");
    EXPECT_TRUE(FileExistsX(plain.c_str()) && FileDelete(plain.c_str()));
    EXPECT_FALSE(FileExistsX(plain.c_str()) || FileDelete(plain.c_str()));
    EXPECT_TRUE(FileExistsX(dir.Path().c_str())) << "a directory opens, too";
}

TEST_F(Files, ReportFailedCopy)
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

TEST_F(Files, AreComparedUpToEndOfFirst)
{
    const std::string whole = dir.Write("whole", Firmware(1025));
    const std::string prefix = dir.Write("prefix", Firmware(1000));
    const std::string changed = dir.Write("changed", Firmware(1024) + "x");
    EXPECT_TRUE(FileCompare(whole.c_str(), whole.c_str()));
    EXPECT_TRUE(FileCompare(prefix.c_str(), whole.c_str()));
    for (const std::string& other : {prefix, changed, dir.Path("missing")})
        EXPECT_FALSE(FileCompare(whole.c_str(), other.c_str())) << other;
}

TEST_F(Files, NeedMoreFreeSpaceThanTheirSize)
{
    EXPECT_TRUE(CheckDiskFree("/mnt/usb", dir.Path("missing").c_str())) << "nothing to measure";
    const std::tuple<const char*, std::size_t, fsblkcnt_t, int, bool> rows[] = {
        {"exactly the free space", 8192, 2, 0, false},
        {"a byte to spare", 8191, 2, 0, true},
        {"over 32 bits", 8192, 1U << 20, 0, true},
        {"no such medium", 8192, 0, -1, true}};
    for (const auto& [name, size, freeBlocks, result, fits] : rows) {
        medium = {freeBlocks, result};
        const std::string file = dir.Write(name, Firmware(size));
        EXPECT_EQ(CheckDiskFree("/mnt/usb", file.c_str()), fits) << name;
    }
}

TEST_F(Files, ThatAreLogsGetEntriesStampedInUtc)
{
    setenv("TZ", "XXX-9", 1);
    for (const char* text : {"100%s\n", static_cast<const char*>(nullptr), "\n"})
        EXPECT_TRUE(AddLogFile(dir.Path("log").c_str(), text));
    EXPECT_EQ(dir.Read("log"), "06/03/14/09:05:07 - 100%s\n"
                               "06/03/14/09:05:07 - 06/03/14/09:05:07 - \n");
    EXPECT_FALSE(AddLogFile(dir.Path("no/log").c_str(), "text\n"));
    std::string lines;
    for (char line = '0'; line <= '9'; ++line)
        lines += std::string(9, line) + "\n";
    // An entry has 64 bytes for its stamp. Without room for it the newest half of a log stays.
    for (const auto& [most, kept] : {std::pair(100 + 64 + 2, 10), {100 + 64 + 1, 8}}) {
        EXPECT_TRUE(AddLogFile(dir.Write("log", lines).c_str(), "x\n", most));
        EXPECT_EQ(dir.Read("log").substr(0, 10 * kept + 5),
                  lines.substr(100 - 10 * kept) + "06/03");
    }
    EXPECT_TRUE(AddLogFile(dir.Write("log", std::string(99, 'x') + "\n").c_str(), "x\n", 120));
    EXPECT_EQ(dir.Read("log"), std::string(59, 'x') + "\n06/03/14/09:05:07 - x\n") << "one line";
    EXPECT_TRUE(fs::create_directories(dir.Path("log.new/full")));
    EXPECT_TRUE(AddLogFile(dir.Write("log", lines).c_str(), "x\n", 120));
    EXPECT_EQ(dir.Read("log"), lines.substr(50) + "06/03/14/09:05:07 - x\n") << "in place";
    EXPECT_FALSE(AddLogFile("/dev/full", std::string(100000, 'x').c_str()));
    EXPECT_FALSE(ResetLogFile(dir.Path("missing").c_str(), 50));
}

TEST_F(Files, ThatAreLogsKeepNewestLines)
{
    const std::tuple<int, std::string, const char*> rows[] = {
        {2, "a\nb\nc\nd", "c\nd"},                        // two too many
        {3, "a\nb\nc\n", "a\nb\nc\n"},                    // just enough
        {-1, "a\nb\n", ""},                               // less than none
        {2, std::string(1023, 'x') + "\na\n", "\na\n"}};  // a long line is two
    for (const auto& [kept, content, expected] : rows) {
        const TempDir logs;
        const std::string path = logs.Write("log", content);
        fs::create_hard_link(path, logs.Path("old"));
        EXPECT_TRUE(ResetLogFile(path.c_str(), kept) && logs.Exists("log")) << kept;
        EXPECT_EQ(logs.Read("old"), content) << "the log is a new file";
        EXPECT_EQ(logs.Read("log"), expected) << kept;
    }
}

TEST_F(Files, ThatAreReplacedKeepOldBytesUntilCommit)
{
    const std::string target = dir.Write("target", "old");
    const std::string work = dir.Path("work");
    fs::create_symlink(dir.Write("other", "other"), work);
    {
        WholeFile dropped(target, work);
        EXPECT_TRUE(dropped.Write("new"));
        EXPECT_EQ(dir.Read("target") + dir.Read("work"), "oldnew");
    }
    EXPECT_FALSE(dir.Exists("work"));
    {
        WholeFile file(target, work);
        EXPECT_TRUE(file.Write("new") && file.Commit());
    }
    EXPECT_EQ(dir.Read("target"), "new");
    EXPECT_FALSE(dir.Exists("work"));
    EXPECT_EQ(dir.Read("other"), "other") << "no link is followed";
    EXPECT_TRUE(IsOnDisk(target, "new"));
    EXPECT_FALSE(IsOnDisk(target, "old") || IsOnDisk(target, "ne") || IsOnDisk(target, "newer"));
}

TEST_F(Files, ThatAreReplacedStayIfAnyStepFails)
{
    const std::string target = dir.Write("target", "old");
    fs::create_directory(dir.Path("directory"));
    {
        WholeFile blocked(dir.Path("directory"), dir.Path("work"));
        EXPECT_TRUE(blocked.Write("new"));
        fs::remove(dir.Path("work"));
        EXPECT_FALSE(blocked.Commit());
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC) << "the reason for a report, whatever becomes of the work file";
    EXPECT_FALSE(WholeFile(target, dir.Path("none/work")).Write("new"));
    EXPECT_FALSE(WholeFile(target, dir.Path("directory")).Write("new")) << "it can't be removed";
    medium.fails = true;
    EXPECT_FALSE(WholeFile(target).Write("new"));
    EXPECT_EQ(errno, EIO);
    medium = {};
    EXPECT_EQ(dir.Read("target"), "old");
}
