// What the controller asks the server for: searches, updates, read-backs, and copies of parameter
// files to a removable medium and back.

#include <utime.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kNoFile[] = "Update File is not exsit.\n";
constexpr char kNoParameters[] = "Parameter File is not exsit.\n";
constexpr char kNoUpdate[] = "Cannot Execute CSP Update.\n";
const std::string kHeader = " \n[ System version: Update File ]\n";

const std::string kOverlong = std::string(81, '0') + "\n";  // no line of an image

constexpr char kCopy[] = "medium/csp_param.rlg";

constexpr char kCopied[] = "Copy Success.\n";
constexpr char kMissing[] = "Parameter file is not exists.\n";
constexpr char kError[] = "Copy error.\n";

// The journal's lines after the mount.
constexpr char kRoom[] = "statfs(/mnt/usb/) = 0\n";
constexpr char kWritten[] = "statfs(/mnt/usb/) = 0\nsync()\n";

// 600 bytes, some of them in runs, and the 17 bytes of their compressed form.
const std::string kData = std::string(300, 'a') + "\xDD" + std::string(299, '\xFF');
const std::string kPacked = Bytes("04 90 DD 61 FF DD 61 2D DD DD 01 DD FF FF DD FF 2C");
constexpr char kOld[] = "an old copy that is longer than what replaces it";

// The journal's lines of the search for a medium and of its mount. Without a point there is none.
std::string MountLines(const std::string& point, bool isBackup, const std::string& result)
{
    const std::string away = "umount(/mnt/floppy) = -1 EINVAL\numount(/mnt/usb) = ";
    if (point.empty())
        return away + "-1 EINVAL\n";
    return (point == "usb" ? away + "0\n" : "umount(/mnt/floppy) = 0\n") + "mount(/dev/sda, /mnt/" +
           point + "/, vfat, 0xc0ed000" + (isBackup ? "a" : "b") +
           ", iocharset=sjis,codepage=932) = " + result + "\n";
}

constexpr std::size_t kReadBackSize = 0x60000;

}  // namespace

// The version of each file is its own name. What is expanded replaces a link, not its target.
TEST(UpdateSearch, LoadsFirstFileFoundAndTriesNoOther)
{
    const struct {
        Words files;              // below mnt
        bool isFound = true;      // the first one
        std::string damage = {};  // its end
    } rows[] = {
        {{"usb/csp_prog.hex", "usb/csp_prog.rlg"}},
        {{"usb/csp_prog.rlg", "cdrom/csp_prog.hex"}},
        {{"cdrom/csp_prog.hex", "cdrom/csp_prog.rlg"}},
        {{"cdrom/csp_prog.rlg", "floppy/csp_prog.rlg"}},
        {{"floppy/csp_prog.rlg", "floppy/csp_prog.hex"}},
        {{"usb/csp_prog.rlg", "cdrom/csp_prog.hex"}, false, "\xDD\x01"},
        {{"usb/csp_prog.hex", "usb/csp_prog.rlg"}, false, kOverlong},
    };
    Scene scene;
    scene.OpenWithPeers();
    for (const auto& [files, isFound, damage] : rows) {
        SCOPED_TRACE(testing::PrintToString(files) + damage);
        for (const char* work : {"tmp/csp_prog.bin", kExpandedFirmware}) {
            scene.Remove(work);
            std::filesystem::create_symlink("planted", scene.Path(work));
        }
        for (const std::string& name : files)
            scene.Write("mnt/" + name,
                        (name.back() == 'x' ? SmallFile(name) : PackedText(Firmware(0x800, name))) +
                            (name == files[0] ? damage : ""));
        const std::string result = isFound ? files[0] + "\n" : kNoFile;

        EXPECT_EQ(scene.Ask(kFindUpdate), isFound ? kHeader + result : result);

        EXPECT_EQ(scene.TakeLog(), result);
        EXPECT_EQ(std::filesystem::is_symlink(scene.Path(kExpandedFirmware)),
                  files[0].back() == 'x');
        EXPECT_FALSE(scene.Exists("tmp/planted")) << "created through a link";
        for (const std::string& name : files)
            scene.Remove("mnt/" + name);
    }
}

TEST(UpdateSearch, ShowsParameterFileTimeInUtc)
{
    setenv("TZ", "JST-9", 1);
    Scene scene;
    scene.OpenWithPeers();
    const utimbuf times = {1078477620, 1078477620};
    utime(scene.Write(kParameterFile, SmallFile("")).c_str(), &times);
    const std::string entry = "CSP Parameter : (2004/3/5/09:07)\n";
    EXPECT_EQ(scene.Exchange(kFindParameters), "[ Parameter Back Up File ]\n" + entry + entry);
}

// Which file an update writes depends on the last search and its result.
TEST(UpdateSearch, DecidesWhetherUpdateStarts)
{
    Scene scene;
    scene.OpenWithPeers();
    EXPECT_EQ(scene.Ask(kUpdate), kNoUpdate);
    EXPECT_EQ(scene.Ask(kUpdateParameters), "Cannot execute Parameter Update.\n");

    scene.Write(kUsbFirmware, SmallFile("V5"));
    scene.Write(kParameterFile, kOverlong);
    EXPECT_EQ(scene.Ask(kFindUpdate), kHeader + "V5\n");
    EXPECT_EQ(scene.Ask(kFindParameters), kNoParameters);
    EXPECT_EQ(scene.Ask(kUpdate), kNoUpdate) << "a file that can't be loaded leaves none";

    EXPECT_EQ(scene.Ask(kFindUpdate), kHeader + "V5\n");
    scene.Remove(kUsbFirmware);
    scene.Remove(kParameterFile);
    EXPECT_EQ(scene.Ask(kFindUpdate), kNoFile);
    EXPECT_EQ(scene.Ask(kFindParameters), kNoParameters);
    scene.TakeLog();
    EXPECT_EQ(scene.Ask(kUpdateParameters).substr(0, 18), "Connecting to CSP\n");
    EXPECT_EQ(scene.TakeLog(), "Start CSP Parameter Update.\n");
}

TEST(ServerUpdate, ReportsProgressAndResultWhileControllerInterferes)
{
    const std::tuple<const char*, std::string, std::size_t> rows[] = {
        {"--join",
         "Connecting to CSP\nSending Data 30%\nSending Data 38%\nSending Data 46%\n"
         "Sending Data 76%\nSending Data 84%\nSending Data 92%\nSending Data 100%\n"
         "CSP Update Success.\n",
         0},
        {"--ng-at 90042100", "%\nCSP Update Success.\n", 0},
        {"--fail 1", "%\nCSP Update Failed.\n", 0},
        {"--silent", "CSP is not connected.\nCSP Update Failed.\n", 8},
        {"--cut-link-every 3000", "CSP Update Failed.\n", 4},
    };
    for (const auto& [faults, end, timeouts] : rows) {
        SCOPED_TRACE(faults);
        Scene scene;
        scene.OpenWithPiano();
        const std::string firmware = Firmware(0x1A000, "V8");
        scene.Write(kUsbCompressedFirmware, PackedText(firmware));
        scene.Ask(kFindUpdate, "V8\n");
        scene.SetFaults(faults);

        // Nothing that comes with the command or later reaches the server or the piano.
        scene.Ask("DF DF 00 BB DF DF DF DF 90 3C 40 00 DF DF 00 AA", "Connecting to CSP\n");
        EXPECT_TRUE(WaitUntil([&, last = end + "Rebooting CSP...\n", left = 3]() mutable {
            if (Contains(scene.controller->Received(), last))
                return true;
            if (left-- > 0)
                scene.Send("DF DF DF DF 90 3C 40 00 DF DF 00 C0 6C 01 02 03 DF DF 00 C3");
            return false;
        }));

        EXPECT_EQ(scene.Flash(firmware.size()) == firmware, Contains(end, "Success"));
        const std::string log = scene.LogTexts();
        EXPECT_EQ(Count(log, "CSP Update status Inc.\n"), timeouts);
        EXPECT_EQ(Count(log, "Start CSP Update.\n"), 1U);
        EXPECT_EQ(log.substr(log.rfind("CSP Update")),
                  end.substr(end.rfind("CSP Update")) + "Rebooting CSP...5sec\n");
        const std::string wire = scene.MidiLog();
        EXPECT_FALSE(Contains(wire, "midi C0 90 3C") || Contains(wire, "midi 80 6C"));
        scene.Ask(kVersion, kServiceText);
        scene.Ask(kUpdate, kNoUpdate);
        EXPECT_EQ(scene.Log(kUpdateLog), "");
        EXPECT_EQ(scene.piano->Kill(SIGTERM), 0) << scene.piano->Error();
    }
}

TEST(ReadBack, RequestsOnlyFirstBlockIfCspStartsUnrequested)
{
    Scene scene;
    scene.StartWithPeers();
    scene.StartReading();
    scene.Say(Frames({UpperRecord(0)}));
    for (std::size_t at = 0; at < 0x2000; at += 128)
        scene.Say(Frames({Record(0, at, std::string(128, 'x'))}));
    EXPECT_EQ(scene.TakeReplies(), "") << "no percentage of an unknown range";
    const Words lines = scene.patcher->Lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "NEXT   :"), 1);
}

TEST(ReadBack, SavesFlashAtStartAndEndsServer)
{
    Scene scene;
    const std::string flash = Firmware(kReadBackSize);
    scene.StartWithPiano(kAnyPort, {"--load", scene.Write("sim/flash", flash) + "@90040000"});

    EXPECT_EQ(scene.AwaitEnd(*scene.server), 0);

    EXPECT_TRUE(scene.Read("cwd/csp_param.hex") == HexText(flash, 12, "\r\n"));
    EXPECT_FALSE(scene.Exists(kParameterFile));
    EXPECT_EQ(Count(scene.MidiLog(), "> console READ   :90040000:900A0000:0C\n"), 1U);
    EXPECT_EQ(Count(scene.MidiLog(), "> console NEXT"), 96U);
    EXPECT_EQ(scene.piano->Kill(SIGTERM), 0) << scene.piano->Error();
    const std::string log = scene.LogTexts();
    EXPECT_EQ(log.substr(log.rfind("CSP Read")), "CSP Read Success.\nRebooting CSP...5sec\n");
    const std::string journal = scene.Journal();
    EXPECT_EQ(journal.substr(journal.find("ioctl")),
              "ioctl(/dev/PciDsp, 33, 0xc00) = 0\nsleep(5)\nioctl(/dev/PciDsp, 33, 0xc01) = 0\n"
              "exit descriptors=0\n");
}

TEST(ReadBack, ByCommandReportsProgressAndSavesToParameterFile)
{
    Scene scene;
    scene.OpenWithPiano();
    scene.Write(kParameterFile, "old");
    std::string texts = "Connecting to CSP\n";

    // This read-back ends right after a request for a block, which must not keep the next one from
    // requesting blocks.
    scene.SetFaults("--bad-checksum-at 90041000");
    EXPECT_EQ(scene.Ask(kReadParameters, "Rebooting CSP...\n"),
              texts + "CSP Read Failed.\nRebooting CSP...\n");
    EXPECT_EQ(scene.Read(kParameterFile), "old");

    scene.SetFaults("--join --read-cut 1000");
    for (const std::string& percentage :
         Split("2 4 6 8 10 12 14 18 20 22 25 27 29 31 35 37 39 41 43 45 47 52 54 56 58 60 62 64 "
               "68 70 72 75 77 79 81 85 87 89 91 93 95 97 100"))
        texts += "Reading CSP " + percentage + "%\n";
    const std::string shown = scene.Ask(kReadParameters, "Rebooting CSP...\n");
    EXPECT_EQ(shown.substr(shown.find("Connecting")),
              texts + "CSP Read Success.\nRebooting CSP...\n");
    EXPECT_EQ(scene.AwaitEnd(*scene.server), 0);
    EXPECT_TRUE(scene.controller->WaitForClose());
    EXPECT_TRUE(scene.Read(kParameterFile) ==
                HexText(std::string(kReadBackSize, '\xFF'), 12, "\r\n"));
    EXPECT_FALSE(scene.Exists("cwd/csp_param.hex"));
    const std::string log = scene.LogTexts();
    EXPECT_EQ(log.substr(log.rfind("Start")),
              "Start Reading CSP Parameters\nCSP Read Success.\nRebooting CSP...5sec\n");
}

TEST(MediumCopy, ReportsResultAndReplacesOnlyByCompleteFile)
{
    const struct {
        const char* command;
        const char* point;  // of the medium; empty without one
        const char* file;   // the unusual file or limit in the unit
        std::string bytes;  // empty: the file is missing
        const char* text;
        const char* calls;
        std::string result;  // the medium's file after a backup, the unit's data after a restore
        const char* mounted = "0";
    } rows[] = {
        {kBackup, "usb", kCopy, "", kCopied, kWritten, kPacked},
        {kBackup, "usb", "none", "", kCopied, kWritten, kPacked},
        {kBackup, "", "none", "", "Floppy in not inserted.\n", "", kOld},
        {kBackup, "usb", "sim/mount-errno", "EROFS\n", kError, "", kOld, "-1 EROFS"},
        {kBackup, "usb", kParameterFile, "", kMissing, "", kOld},
        {kBackup, "usb", kParameterFile, ":00000001FF\r\n", "Binary file error.\n", "", kOld},
        {kBackup, "usb", "sim/free", "17\n", "Free Disk space error.\n", kRoom, kOld},
        {kBackup, "usb", "sim/full-after", "16\n", kError, kRoom, kPacked.substr(0, 16)},
        {kRestore, "usb", "none", "", kCopied, "", kData},
        {kRestore, "floppy", "none", "", kCopied, "", kData},
        {kRestore, "usb", kCopy, "", kMissing, "", kOld},
        {kRestore, "usb", kCopy, kPacked + "\xDD", kError, "", kOld},
        {kRestore, "usb", "sim/pull-after", "5\n", kError, "medium pulled\n", kOld},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.command << row.point << row.file << row.bytes);
        const bool isBackup = row.command == kBackup;
        Scene scene;
        scene.OpenWithPeers();
        scene.Write(kCopy, isBackup ? kOld : kPacked);
        scene.Write(kParameterFile, HexText(isBackup ? kData : kOld, 32, "\r\n"));
        if (*row.point != '\0')
            scene.Mount(row.point);
        if (row.bytes.empty())
            scene.Remove(row.file);
        else
            scene.Write(row.file, row.bytes);
        const std::size_t called = scene.Journal().size();
        const std::string texts = std::string("Copying CSP Parameters...") +
                                  (isBackup ? "HD -> FD\n" : "FD -> HD\n") + row.text;

        EXPECT_EQ(scene.Ask(row.command), texts);

        EXPECT_EQ(scene.TakeLog(), texts);
        EXPECT_EQ(scene.Journal().substr(called),
                  MountLines(row.point, isBackup, row.mounted) + row.calls);
        EXPECT_EQ(scene.Read(isBackup ? kCopy : kParameterFile),
                  isBackup ? row.result : HexText(row.result, 32, "\r\n"));
    }
}
