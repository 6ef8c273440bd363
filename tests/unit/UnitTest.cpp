// The simulated unit, tested with a probe that makes calls like those of the product.

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

    ExpectCalls({"exclusive new = 0", "write = 100", "truncate 10 = 0", "stat new = 10",
                 "exclusive new = -1 EEXIST", "exclusive /tmp/csp_prog.bin = -1 EEXIST",
                 "lstat /tmp/csp_prog.bin = 7", "stat /tmp/csp_prog.bin = -1 ENOENT",
                 "unlink /tmp/csp_prog.bin = 0", "exclusive /tmp/csp_prog.bin = 0",
                 "lstat /tmp/csp_prog.bin = 0", "rename /tmp/csp_prog.bin = 0"});
    testing::internal::CaptureStderr();
    EXPECT_EQ(unit.Start("probe", {"open pipe"}).Wait(), -1);
    EXPECT_TRUE(Contains(testing::internal::GetCapturedStderr(), " waits in open pipe without"));
}

TEST_F(UnitTest, MountsMediumAtOnePoint)
{
    unit.Write("medium/file", "12345");

    ExpectCalls({"umount /mnt/floppy = -1 EINVAL", "mount /mnt/usb/ = 0", "stat /mnt/usb/file = 5",
                 "open /mnt/usb/file = 0", "umount /mnt/usb = -1 EBUSY", "close = 0",
                 "mount /mnt/usb = -1 EBUSY", "umount /mnt/usb = 0",
                 "stat /mnt/usb/file = -1 ENOENT", "mount-ro /mnt/floppy = 0",
                 "open /mnt/floppy/file = 0", "read = 5", "create /mnt/floppy/new = -1 EROFS",
                 "fappend /mnt/floppy/file = -1 EROFS", "unlink /mnt/floppy/file = -1 EROFS",
                 "rename /mnt/floppy/file = -1 EXDEV", "fread /proc/mounts = 84"});
    EXPECT_EQ(
        unit.Read("sim/mounts"),
        "/dev/sda /mnt/floppy vfat ro,nosuid,noexec,relatime,iocharset=sjis,codepage=932 0 0\n");
    unit.Control("mount-errno", "ENXIO");
    ExpectCalls({"umount /mnt/floppy = 0", "mount /mnt/floppy = -1 ENXIO"});
    EXPECT_EQ(unit.Read("sim/mounts"), "");
    EXPECT_EQ(unit.Read("medium/file"), "12345");

    // A device is mounted twice only alike.
    unit.Remove("sim/mount-errno");
    unit.Mount("cdrom");
    ExpectCalls({"mount-ro /mnt/usb = -1 EBUSY", "mount /mnt/usb = 0", "umount /mnt/cdrom = 0",
                 "umount /mnt/cdrom = -1 EINVAL", "umount /mnt/usb = 0", "mount-ro /mnt/usb = 0"});
}

TEST_F(UnitTest, FillsMediumAndPullsItOutUnderOpenFile)
{
    unit.Mount("usb");
    unit.Control("full-after", "150");
    ExpectCalls({"create /mnt/usb/file = 0", "write = 100", "write = 50", "write = -1 ENOSPC",
                 "fappend /mnt/usb/file = -1 ENOSPC", "fread /mnt/usb/file = 150",
                 "create /mnt/floppy/elsewhere = 0", "write = 100"});

    unit.Control("pull-after", "250");
    ExpectCalls({"fread /mnt/usb/file = 150", "open /mnt/usb/file = 0", "read = 100",
                 "read = -1 EIO", "stat /mnt/usb/file = -1 ENOENT", "umount /mnt/usb = -1 EBUSY",
                 "close = 0", "umount /mnt/usb = 0", "mount /mnt/usb = -1 ENOENT"});
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

    unit.Write("sim/device", "/dev/sdb");
    unit.Remove("sim/pull-after");
    unit.Set("SIMUNIT_FAULT=unlink:1:pull");
    ExpectCalls({"mount /mnt/usb = -1 ENOENT", "mount-b /mnt/usb = 0", "stat /mnt/usb/file = 150",
                 "umount /mnt/usb = 0", "stat /mnt/usb/file = -1 ENOENT", "umount /mnt/usb = 0",
                 "mount-b /mnt/usb = 0", "unlink /mnt/usb/file = -1 ENOENT"});
}

TEST_F(UnitTest, NamesAndStampsFilesOfMediumAsFat)
{
    unit.Mount("usb");
    ExpectCalls({"exclusive /mnt/usb/New.Txt = 0", "write = 100", "stat /mnt/usb/new.txt = 100",
                 "exclusive /mnt/usb/NEW.TXT = -1 EEXIST", "create /mnt/usb/a:b = -1 EINVAL",
                 "rename-refused /mnt/usb/new.txt = -1 EINVAL", "open /mnt/usb/a:b = -1 ENOENT",
                 "create a:b = 0", "utime a:b = 0", "mtime a:b = 1000000001", "sleep 3 = 0",
                 "create /mnt/usb/file = 0", "mtime /mnt/usb/file = 1700000002",
                 "utime /mnt/usb/FILE = 0", "mtime /mnt/usb/file = 1000000000",
                 "utime-1979 /mnt/usb/file = 0", "mtime /mnt/usb/file = 315532800"});
    EXPECT_TRUE(unit.Exists("medium/New.Txt"));

    ExpectCalls({"chdir " + unit.Path("medium") + " = 0", "umount /mnt/usb = -1 EBUSY"});
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
        {"fwrite:1:ENOSPC", "/cwd/copy", {"fappend copy = -1 ENOSPC", "fappend copy = 100"}},
    };
    for (const auto& [fault, subject, calls] : rows) {
        SCOPED_TRACE(fault);
        unit.Set("SIMUNIT_FAULT=" + fault);
        ExpectCalls(calls);
        EXPECT_TRUE(Contains(unit.Journal(), " on " + subject + "\n"));
        unit.Remove("sim/journal");
    }
}

TEST(SimPiano, RefusesSecondOneOnSameRoot)
{
    Unit unit;
    unit.StartPiano();
    Process& second = unit.Start("simpiano", {"--root", unit.Path()});
    EXPECT_EQ(second.Wait(), 2);
    EXPECT_EQ(second.Error(), "simpiano: another simpiano runs in " + unit.Path() + "\n");
}

}  // namespace
