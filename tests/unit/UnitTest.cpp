// The simulated unit itself, proved with a probe that makes calls like those of the product. The
// compiler picks other entry points of libc in other builds, so each test runs with each probe.

#include <gtest/gtest.h>

#include "Unit.h"

namespace {

class UnitTest : public testing::TestWithParam<const char*> {
protected:
    // Makes the calls in one run of the probe; what it printed.
    std::string Call(const Unit::Words& calls)
    {
        Process& probe = unit.Start(GetParam(), calls);
        EXPECT_EQ(probe.Wait(), 0) << probe.Error();
        return probe.Output();
    }

    bool Journalled(const std::string& text)
    {
        return unit.Journal().find(text) != std::string::npos;
    }

    Unit unit;
};

TEST_P(UnitTest, MapsUnitPathsBelowRoot)
{
    unit.Write("etc/KVT-release", "abc");
    unit.Write("tmp/csp_prog.hex", "12345");

    const std::string result =
        Call({"stat /etc/KVT-release", "open /etc/KVT-release", "read", "fopen /etc/KVT-lang",
              "create /usr/local/lib/diag/new", "write", "stat /usr/local/lib/diag/new",
              "utime /usr/local/lib/diag/new", "rename /usr/local/lib/diag/new",
              "stat /tmp/csp_prog.hex", "unlink /tmp/csp_prog.hex", "fcreate /mnt/usb/plain",
              "access /mnt/floppy", "stat /mnt/usbstick", "fopen /etc/passwd"});

    EXPECT_EQ(result, "stat 3\nopen 0\nread 3\nfopen 0\ncreate 0\nwrite 100\nstat 100\nutime 0\n"
                      "rename 0\nstat 5\nunlink 0\nfcreate 0\naccess 0\nstat -1 ENOENT\nfopen 0\n");
    EXPECT_TRUE(unit.Exists("cwd/renamed"));
    EXPECT_TRUE(unit.Exists("mnt/usb/plain"));
    EXPECT_FALSE(unit.Exists("tmp/csp_prog.hex"));
}

TEST_P(UnitTest, MapsSocketPathsUnlessTooLong)
{
    Neighbour patcher(unit.Path("home/i2c_server_sock"));

    EXPECT_EQ(Call({"connect /home/i2c_server_sock", "send", "connect /tmp/rcseq_socket"}),
              "connect 0\nsend 100\nconnect -1 ENOENT\n");
    ASSERT_TRUE(patcher.Accept());
    EXPECT_TRUE(patcher.WaitForClose());
    EXPECT_EQ(patcher.Received().size(), 100U);

    unit.Set("SIMUNIT_ROOT=/tmp/" + std::string(100, 'x'));
    EXPECT_EQ(Call({"connect /home/i2c_server_sock"}), "connect -1 ENAMETOOLONG\n");
}

TEST_P(UnitTest, SimulatesDspDevice)
{
    EXPECT_EQ(Call({"device /dev/PciDsp", "ioctl 3073", "close"}), "device 0\nioctl 0\nclose 0\n");
    EXPECT_EQ(unit.Journal(), "ioctl(/dev/PciDsp, 33, 0xc01) = 0\nexit descriptors=0\n");

    unit.DspErrno("EIO");
    EXPECT_EQ(Call({"device /dev/PciDsp", "ioctl 3072"}), "device 0\nioctl -1 EIO\n");
    EXPECT_TRUE(Journalled("ioctl(/dev/PciDsp, 33, 0xc00) = -1 EIO\nexit descriptors=1\n"));

    unit.Remove("dev/PciDsp");
    EXPECT_EQ(Call({"device /dev/PciDsp"}), "device -1 ENOENT\n");
}

TEST_P(UnitTest, MountsMediumAtOnePointAndLogsCalls)
{
    unit.Write("medium/file", "12345");

    EXPECT_EQ(Call({"umount /mnt/floppy", "mount /mnt/usb/", "stat /mnt/usb/file",
                    "open /mnt/usb/file", "umount /mnt/usb", "close", "mount /mnt/usb",
                    "umount /mnt/usb", "stat /mnt/usb/file", "sync"}),
              "umount -1 EINVAL\nmount 0\nstat 5\nopen 0\numount -1 EBUSY\nclose 0\n"
              "mount -1 EBUSY\numount 0\nstat -1 ENOENT\nsync 0\n");
    EXPECT_EQ(unit.Journal(),
              "umount(/mnt/floppy) = -1 EINVAL\n"
              "mount(/dev/sda, /mnt/usb/, vfat, 0xc0ed000a, iocharset=sjis,codepage=932) = 0\n"
              "umount(/mnt/usb) = -1 EBUSY\n"
              "mount(/dev/sda, /mnt/usb, vfat, 0xc0ed000a, iocharset=sjis,codepage=932) = -1 "
              "EBUSY\n"
              "umount(/mnt/usb) = 0\nsync()\nexit descriptors=0\n");

    unit.Mount("floppy");
    unit.MountErrno("ENXIO");
    EXPECT_EQ(Call({"umount /mnt/floppy", "mount /mnt/floppy"}), "umount 0\nmount -1 ENXIO\n");
    EXPECT_FALSE(unit.IsMounted("floppy"));
}

TEST_P(UnitTest, RefusesChangesOnReadOnlyMedium)
{
    unit.Write("medium/file", "12345");

    EXPECT_EQ(Call({"mount-ro /mnt/usb/", "open /mnt/usb/file", "read", "create /mnt/usb/new",
                    "fcreate /mnt/usb/file", "unlink /mnt/usb/file", "rename /mnt/usb/file",
                    "utime /mnt/usb/file"}),
              "mount-ro 0\nopen 0\nread 5\ncreate -1 EROFS\nfcreate -1 EROFS\nunlink -1 EROFS\n"
              "rename -1 EROFS\nutime -1 EROFS\n");
    EXPECT_EQ(unit.Read("medium/file"), "12345");
}

TEST_P(UnitTest, FillsMediumAndReportsRoom)
{
    unit.Mount("usb");
    unit.FullAfter(150);
    unit.Free(5000);

    EXPECT_EQ(Call({"statfs /mnt/usb/", "create /mnt/usb/file", "write", "write", "write",
                    "create /mnt/floppy/elsewhere", "write", "write"}),
              "statfs 5000\ncreate 0\nwrite 100\nwrite 50\nwrite -1 ENOSPC\ncreate 0\nwrite 100\n"
              "write 100\n");
    EXPECT_TRUE(Journalled("statfs(/mnt/usb/)\n"));
}

TEST_P(UnitTest, PullsMediumOutUnderOpenFile)
{
    unit.Write("medium/file", std::string(1000, 'x'));
    unit.Mount("usb");
    unit.PullAfter(250);

    EXPECT_EQ(Call({"open /mnt/usb/file", "read", "read", "read", "read", "stat /mnt/usb/file",
                    "umount /mnt/usb", "mount /mnt/usb"}),
              "open 0\nread 100\nread 100\nread 50\nread -1 EIO\nstat -1 ENOENT\n"
              "umount -1 EINVAL\nmount -1 ENOMEDIUM\n");
    EXPECT_FALSE(unit.IsMounted("usb"));
}

TEST_P(UnitTest, AppliesPathsAndLimitsToStreams)
{
    unit.Write("usr/local/lib/diag/log", "old\n");
    unit.Write("medium/file", std::string(9000, 'x'));
    unit.Mount("usb");
    unit.FullAfter(150);

    EXPECT_EQ(Call({"fappend /usr/local/lib/diag/log", "fappend /usr/local/lib/diag/log",
                    "fwrite /etc/KVT-lang", "fread /mnt/usb/file", "fappend /mnt/usb/new",
                    "fappend /mnt/usb/new", "fread /mnt/usb/new", "fread /mnt/usb/none",
                    "mount /mnt/floppy", "umount /mnt/usb"}),
              "fappend 0\nfappend 0\nfwrite 0\nfread 9000\nfappend 0\nfappend -1 ENOSPC\n"
              "fread 150\nfread -1 ENOENT\nmount 0\numount 0\n");
    EXPECT_EQ(unit.Read("usr/local/lib/diag/log"), "old\n" + std::string(200, 'p'));
    EXPECT_EQ(unit.Read("etc/KVT-lang"), std::string(100, 'p'));
    EXPECT_TRUE(Journalled("exit descriptors=0\n"));

    unit.Mount("cdrom");
    unit.PullAfter(5000);
    EXPECT_EQ(Call({"fread /mnt/cdrom/file"}), "fread -1 EIO\n");
    EXPECT_TRUE(Journalled("medium pulled\nexit descriptors=0\n"));
}

TEST_P(UnitTest, WaitsInVirtualTime)
{
    EXPECT_EQ(Call({"sleep 10", "usleep 900000", "nanosleep 10", "select 10"}),
              "sleep 0\nusleep 0\nnanosleep 0\nselect 0\n");

    EXPECT_EQ(UnitTime(), std::chrono::milliseconds(30900));
    EXPECT_EQ(unit.Journal(), "sleep(10)\nusleep(900000)\nexit descriptors=0\n");
}

TEST_P(UnitTest, FailsNthCallOfKind)
{
    const Unit::Words calls{
        "fopen /etc/passwd",      "open /etc/KVT-release", "read",  "read",  "select 0",
        "fread /etc/KVT-release", "create copy",           "write", "write", "fappend copy"};
    unit.Write("etc/KVT-release", std::string(250, 'x'));
    struct {
        const char* fault;
        const char* subject;
        const char* result;
    } const rows[] = {
        {"read:2:EIO", "/etc/KVT-release", "0 0 100 -1 EIO 0 250 0 100 100 0 "},
        {"read:1:short", "/etc/KVT-release", "0 0 50 100 0 250 0 100 100 0 "},
        {"write:2:28", "/cwd/copy", "0 0 100 100 0 250 0 100 -1 ENOSPC 0 "},
        {"open:1:EMFILE", "/etc/KVT-release", "0 -1 EMFILE -1 EBADF -1 EBADF 0 250 0 100 100 0 "},
        {"select:1:EINTR", "-", "0 0 100 100 -1 EINTR 250 0 100 100 0 "},
        {"fread:1:EIO", "/etc/KVT-release", "0 0 100 100 0 -1 EIO 0 100 100 0 "},
        {"fread:1:short", "/etc/KVT-release", "0 0 100 100 0 250 0 100 100 0 "},
        {"fwrite:1:ENOSPC", "/cwd/copy", "0 0 100 100 0 250 0 100 100 -1 ENOSPC "},
        {"fwrite:1:short", "/cwd/copy", "0 0 100 100 0 250 0 100 100 0 "},
    };

    for (const auto& row : rows) {
        unit.Set("SIMUNIT_FAULT=" + std::string(row.fault));
        std::string results;
        std::istringstream lines(Call(calls));
        for (std::string call; lines >> call && std::getline(lines >> std::ws, call);)
            results += call + " ";
        EXPECT_EQ(results, row.result) << row.fault;
        EXPECT_TRUE(Journalled(std::string(" on ") + row.subject + "\n")) << row.fault;
        unit.Remove("sim/journal");
    }

    unit.Set("SIMUNIT_FAULT=write:3:EIO");
    Call(calls);
    EXPECT_FALSE(Journalled("fault"));
}

TEST_P(UnitTest, ListsTheCallsWithWhatTheyWereMadeOn)
{
    Neighbour patcher(unit.Path("home/i2c_server_sock"));
    unit.Write("medium/file", "12345");
    unit.Mount("usb");
    unit.Set("SIMUNIT_CALLS=" + unit.Path("sim/calls"));

    Call({"open /mnt/usb/file", "read", "fread /etc/KVT-lang", "fappend here", "select 0",
          "connect /home/i2c_server_sock", "send", "stat /tmp/csp_prog.hex", "umount /mnt/usb"});

    EXPECT_EQ(unit.Read("sim/calls"),
              "open 1 /mnt/usb/file\nread 1 /medium/file\n"
              "open 2 /etc/KVT-lang\nfread 1 /etc/KVT-lang\nfread 2 /etc/KVT-lang\n"
              "open 3 here\nfwrite 1 /cwd/here\nselect 1 -\n"
              "socket 1 socket\nconnect 1 /home/i2c_server_sock\n"
              "write 1 /home/i2c_server_sock\nstat 1 /tmp/csp_prog.hex\numount 1 /mnt/usb\n");
}

INSTANTIATE_TEST_SUITE_P(Builds, UnitTest,
                         testing::Values("probe_plain", "probe_fortified", "probe_wide"),
                         [](const auto& tested) { return std::string(tested.param).substr(6); });

}  // namespace
