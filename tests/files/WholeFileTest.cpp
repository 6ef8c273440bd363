#include <cerrno>
#include <filesystem>
#include <string>

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "TempDir.h"
#include "WholeFile.h"

namespace {

struct WholeFileTest : testing::Test {
    TempDir dir;
    const std::string target = dir.Write("target", "old");
    const std::string work = dir.Path("work");
};

bool diskFails = false;  // it keeps other bytes than were written

}  // namespace

// Replaces libc's in this program.
extern "C" int fsync(int descriptor)
{
    if (diskFails && pwrite(descriptor, "X", 1, 0) != 1)
        return -1;
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

TEST_F(WholeFileTest, KeepsOldFileUntilCommit)
{
    std::filesystem::permissions(target, std::filesystem::perms::owner_read);
    std::filesystem::create_symlink(dir.Write("other", "other"), work);
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
    EXPECT_EQ(std::filesystem::status(target).permissions(), std::filesystem::perms::owner_read);
}

TEST_F(WholeFileTest, CreatesMissingFileAndReportsFailure)
{
    WholeFile created(dir.Path("new"), work);
    EXPECT_TRUE(created.Write("") && created.Commit());
    EXPECT_TRUE(dir.Exists("new"));

    std::filesystem::create_directory(dir.Path("directory"));
    {
        WholeFile blocked(dir.Path("directory"), work);
        EXPECT_TRUE(blocked.Write("new"));
        std::filesystem::remove(work);
        EXPECT_FALSE(blocked.Commit());
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC) << "the reason for a report, whatever becomes of the work file";
    EXPECT_FALSE(WholeFile(target, dir.Path("none/work")).Write("new"));
    EXPECT_FALSE(WholeFile(target, dir.Path("directory")).Write("new")) << "it can't be removed";

    diskFails = true;
    EXPECT_FALSE(WholeFile(target).Write("new"));
    EXPECT_EQ(errno, EIO);
    diskFails = false;
    EXPECT_EQ(dir.Read("target"), "old");

    EXPECT_TRUE(IsOnDisk(target, "old"));
    EXPECT_FALSE(IsOnDisk(target, "new") || IsOnDisk(target, "ol") || IsOnDisk(target, "older"));
}
