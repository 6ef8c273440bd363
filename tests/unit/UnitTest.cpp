// The simulated unit, tested with a probe that makes calls like those of the product.

#include <fstream>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Unit.h"

namespace {

class UnitTest : public testing::Test {
protected:
    // Makes the calls in one run of the probe. Each one's result comes after " = ".
    void ExpectCalls(const Words& calls)
    {
        Words arguments;
        std::string results;
        for (const std::string& call : calls) {
            arguments.push_back(call.substr(0, call.find(" = ")));
            results += call + "\n";
        }
        Process& probe = unit.Start("probe", arguments);
        EXPECT_EQ(probe.Wait(), 0) << probe.Error();
        EXPECT_EQ(probe.Output(), results);
    }

    Unit unit;
};

TEST_F(UnitTest, CreatesAndReplacesLikeLinux)
{
    std::filesystem::create_symlink("nothing", unit.Path("tmp/csp_prog.bin"));
    mkfifo(unit.Path("cwd/pipe").c_str(), 0600);

    ExpectCalls({"sleep 3 = 0", "exclusive new = 0", "write = 100", "mtime new = 1700000003",
                 "utime new = 0", "mtime new = 1000000001", "truncate 10 = 0", "stat new = 10",
                 "exclusive new = -1 EEXIST", "exclusive /tmp/csp_prog.bin = -1 EEXIST",
                 "lstat /tmp/csp_prog.bin = 7", "stat /tmp/csp_prog.bin = -1 ENOENT",
                 "unlink /tmp/csp_prog.bin = 0", "exclusive /tmp/csp_prog.bin = 0",
                 "lstat /tmp/csp_prog.bin = 0", "rename /tmp/csp_prog.bin = 0"});
    testing::internal::CaptureStderr();
    EXPECT_EQ(unit.Start("probe", {"open pipe"}).Wait(), -1);
    EXPECT_TRUE(Contains(testing::internal::GetCapturedStderr(), " waits in open pipe without"));
}

TEST_F(UnitTest, AnswersLikeRealKernel)
{
    unit.Write("medium/file", "12345");

    Words calls;
    std::ifstream list(DIAG_SOURCE "/tests/unit/kernel.txt");
    for (std::string line; std::getline(list, line);) {
        if (line.empty()) {
            ExpectCalls(calls);
            calls.clear();
            unit.Write("sim/device", "/dev/sdb");
        } else if (line[0] != '#') {
            calls.push_back(line);
        }
    }
    ExpectCalls(calls);
    EXPECT_TRUE(unit.Exists("medium/New.Txt"));
}

TEST_F(UnitTest, FillsMediumAndPullsItOutUnderOpenFile)
{
    unit.Mount("usb");
    unit.Control("full-after", "150");
    ExpectCalls({"sleep 3 = 0", "create /mnt/usb/file = 0", "mtime /mnt/usb/file = 1700000002",
                 "write = 100", "write = 50", "write = -1 ENOSPC", "stat /mnt/usb/file = 150",
                 "create /mnt/floppy/elsewhere = 0", "write = 100"});

    unit.Control("pull-after", "100");
    ExpectCalls({"open /mnt/usb/file = 0", "read = 100", "read = -1 EIO",
                 "stat /mnt/usb/file = -1 ENOENT", "umount /mnt/usb = -1 EBUSY", "close = 0",
                 "umount /mnt/usb = 0", "mount /mnt/usb = -1 ENOENT"});
    EXPECT_EQ(unit.Read("sim/mounts"), "");
}

TEST_F(UnitTest, ReportsLateWriteErrorsOfPulledMedium)
{
    unit.Mount("usb");
    unit.Control("pull-after", "150");
    ExpectCalls({"create /mnt/usb/file = 0", "write = 100", "fsync = 0", "write = 100",
                 "fsync = -1 EIO", "fdatasync = -1 EIO", "syncfs = 0", "sync = 0", "close = 0",
                 "stat /mnt/usb/file = -1 ENOENT", "create /mnt/usb/new = -1 ENOSPC",
                 "open /mnt/usb/. = 0"});
    EXPECT_EQ(unit.Journal(),
              "fsync(/medium/file) = 0\nmedium pulled\nfsync(/medium/file) = -1 EIO\n"
              "fsync(/medium/file) = -1 EIO\nsyncfs(/medium/file) = 0\nsync()\nexit "
              "descriptors=1\n");
}

TEST_F(UnitTest, FailsNthCallOfKind)
{
    unit.Write("etc/KVT-release", std::string(250, 'x'));
    const std::string opened = "open /etc/KVT-release = 0";
    const std::tuple<std::string, std::string, Words> rows[] = {
        {"read:2:EIO", "/etc/KVT-release", {opened, "read = 100", "read = -1 EIO", "read = 100"}},
        {"read:1:short", "/etc/KVT-release", {opened, "read = 50", "read = 100"}},
        {"fsync:1:5", "/cwd/copy", {"create copy = 0", "fsync = -1 EIO", "fsync = 0"}},
        {"open@-lang#2:EROFS",
         "/etc/KVT-lang",
         {"open /etc/KVT-lang = 0", opened, "open /etc/KVT-lang = -1 EROFS"}},
        {"select:1:EINTR", "-", {"select 0 = -1 EINTR", "select 0 = 0"}},
    };
    for (const auto& [fault, subject, calls] : rows) {
        SCOPED_TRACE(fault);
        unit.Set("SIMUNIT_FAULT=" + fault);
        ExpectCalls(calls);
        EXPECT_TRUE(Contains(unit.Journal(), " on " + subject + "\n"));
        unit.Remove("sim/journal");
    }
}

}  // namespace
