// The strict server: what it refuses to load, to copy or to wait for, and what the controller sees.

#include <filesystem>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"
#include "SumFile.h"

namespace {

constexpr char kStickImage[] = "medium/csp_param.rlg";
constexpr char kStickSum[] = "medium/csp_param.sum";
constexpr char kNoUpdateFile[] = "Update File is not exsit.\n";
constexpr char kUpdateRefused[] = "Cannot Execute CSP Update.\n";
const std::string kOwnSum = "that of the file";
constexpr std::size_t kReadBackSize = 0x60000;

const std::string kOldData = std::string(kReadBackSize, 'o');
const std::string kNewData = std::string(kReadBackSize - 2, 'n') + "\xDD\xDD";

std::string ParameterFile(const std::string& data)
{
    return HexText(data, 32, "\r\n");
}

// What follows the first text in the answer.
std::string After(const std::string& text, const std::string& answer)
{
    const std::size_t at = answer.find(text);
    return at == std::string::npos ? "no " + text : answer.substr(at + text.size());
}

// One call of the server fails, unless `fault` is empty.
struct StrictServer : ServerWithPeers {
    explicit StrictServer(const std::string& fault = "")
        : ServerWithPeers([&](Unit& made) { made.Set("SIMUNIT_FAULT=" + fault); },
                          {"--strict", "-P", OwnPort()})
    {}
};

}  // namespace

TEST(StrictSearch, ReportsDamageAtOnceAndRefusesUpdate)
{
    const std::string good = HexText(FirmwareOf("V1", 0x1000), 32, "\r\n");
    const std::string packed = PackedText(FirmwareOf("V1", 0x1000));
    const std::string plain = "/mnt/usb/csp_prog.hex";
    const std::string compressed = "/mnt/usb/csp_prog.rlg";
    const std::string unverified =
        compressed + ": not verified, since there is no /mnt/usb/csp_prog.sum\n";
    std::string bomb = "\x04\x90";
    for (int i = 0; i < 66000; ++i)
        bomb += "\xDDx\xFF";
    const struct {
        const char* file;
        std::string bytes;
        std::string sum;      // of the file next to it; empty: none
        bool isShown;         // its version, not that there is no file
        std::string reasons;  // also those of the refused update; none: it isn't refused
        std::string note = {};
    } rows[] = {
        {"csp_prog.hex", good, "", true, ""},
        {"csp_prog.hex", good.substr(0, good.size() - 13), "", true,
         plain + ":129: no end record (type 1): the board waits for more\n"},
        {"csp_prog.hex", good.substr(0, 17) + "\r\n\r\n\r\n\r\n" + good.substr(17), "", true,
         plain + ":2: a blank line before the end record\n" + plain +
             ":3: a blank line before the end record\nand more in the log: 2\n"},
        {"csp_prog.hex", TooLargeFile('\n'), "", false, plain + ": File too large\n"},
        {"csp_prog.rlg", packed, "", true, "", unverified},
        {"csp_prog.rlg", packed, "1 2 csp_prog.rlg\n", false,
         compressed + ": damaged, since /mnt/usb/csp_prog.sum doesn't match\n"},
        {"csp_prog.rlg", TooLargeFile('x'), "", false, compressed + ": File too large\n"},
        {"csp_prog.rlg", bomb, "", false,
         compressed + ": cut off, or larger than the flash when expanded\n", unverified},
    };
    StrictServer scene;
    scene.Open();
    EXPECT_EQ(scene.Ask(kUpdate), std::string(kUpdateRefused) + "no search has found a file\n");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reasons);
        scene.unit.Write(std::string("mnt/usb/") + row.file, row.bytes);
        if (!row.sum.empty())
            scene.unit.Write("mnt/usb/csp_prog.sum", row.sum);

        const std::string found = scene.Ask(kFindUpdate);

        EXPECT_EQ(After(row.isShown ? "V1\n" : kNoUpdateFile, found), row.note + row.reasons);
        EXPECT_NE(scene.TakeLog().find(row.reasons.substr(0, row.reasons.find('\n'))),
                  std::string::npos);
        if (!row.reasons.empty()) {
            EXPECT_EQ(scene.Ask(kUpdate), kUpdateRefused + row.reasons);
        }
        scene.unit.Remove(std::string("mnt/usb/") + row.file);
        scene.unit.Remove("mnt/usb/csp_prog.sum");
    }
    EXPECT_EQ(scene.Ask(kFindUpdate),
              std::string(kNoUpdateFile) + "the last search has found no file\n");
    EXPECT_EQ(scene.Ask(kUpdate),
              std::string(kUpdateRefused) + "the last search has found no file\n");
}

TEST(StrictServer, UpdatesOnceForEachSearchAndKeepsOthersOut)
{
    ServerWithPiano scene({"--strict", "-P", OwnPort()});
    const std::string firmware = FirmwareOf("V1", 0x1000);
    scene.unit.Write(kUsbFirmware, HexText(firmware, 32, "\r\n"));
    Process& second = scene.unit.Run({"--strict", "-P", OwnPort()});

    scene.Ask(kFindUpdate, "V1\n");
    scene.Ask(kUpdate, "CSP Update Success.\n");
    scene.Ask(kUpdate, std::string(kUpdateRefused) +
                           "the file that the last search has found was used; search again\n");

    EXPECT_TRUE(scene.unit.Flash(kImageStart, firmware.size()) == firmware);
    EXPECT_EQ(second.Wait(), 1);
    EXPECT_EQ(second.Error(), "diag_server: " + kLogFolder + "/diag_server.lock: process " +
                                  std::to_string(scene.server.Id()) + " is running already\n");
}

// Either copy replaces its target whole or not at all. A failure comes with one line, the reason.
TEST(StrictCopy, ReplacesTargetOnlyByCompleteReadBack)
{
    const std::string file = kParameterFile;
    const std::string copy = "/mnt/usb/csp_param.rlg";
    const std::string newPacked = PackedText(kNewData);
    const std::string newFile = ParameterFile(kNewData);
    const std::string incomplete = ": it doesn't cover exactly the parameter flash\n";
    const std::string failed = ": Input/output error\n";
    const struct {
        const char* command;
        std::string source;
        const char* fault;
        std::string text;
        bool isReplaced = false;
        std::string sum = {};  // next to a source on the medium
    } rows[] = {
        {kBackup, newFile, "", "Copy Success.\n", true},
        {kBackup, newFile.substr(0, 2434), "",
         "Binary file error.\n" + file +
             ":33: the last line has no line end, so the unit does not "
             "load it; the file may be cut off\n"},
        {kBackup, HexText("data", 4, "\r\n"), "", "Binary file error.\n" + file + incomplete},
        {kBackup, newFile, "write@CSP_PARA.NEW:ENOSPC",
         "Free Disk space error.\n" + copy + ": No space left on device\n"},
        {kBackup, newFile, "fsync@CSP_PARA.NEW:EIO", "Copy error.\n" + copy + failed},
        {kBackup, newFile, "fsync@CSP_SUM.NEW:EIO", "Copy error.\n" + copy + failed},
        {kBackup, newFile, "fsync@CSP_PARA.NEW:pull", "Copy error.\n" + copy + failed},
        {kBackup, newFile, "rename@csp_param.rlg:EIO", "Copy error.\n" + copy + failed},
        {kBackup, newFile, "syncfs@medium:EIO", "Copy error.\n" + copy + failed},
        {kBackup, newFile, "syncfs@medium#2:EIO", "Copy error.\n" + copy + failed, true},
        {kRestore, newPacked, "", "Copy Success.\n", true, kOwnSum},
        {kRestore, newPacked, "",
         "Copy Success.\n" + copy + ": not verified, since there is no /mnt/usb/csp_param.sum\n",
         true},
        {kRestore, newPacked, "",
         "Copy error.\n" + copy + ": damaged, since /mnt/usb/csp_param.sum doesn't match\n", false,
         "1 2 csp_param.rlg\n"},
        {kRestore, newPacked.substr(0, 2434), "",
         "Copy error.\n" + copy + ": cut off, or larger than the flash when expanded\n"},
        {kRestore, newPacked.substr(0, 2432), "",
         "Copy error.\n" + copy + ", expanded" + incomplete},
        {kRestore, newPacked.substr(0, 2), "",
         "Copy error.\n" + copy + ", expanded:1: the file has no data\n"},
        {kRestore, "\x05" + newPacked.substr(1), "",
         "Copy error.\n" + copy + ", expanded" + incomplete},
        {kRestore, newPacked, "write@csp_param.hex.new:ENOSPC",
         "Copy error.\n" + file + ": No space left on device\n"},
        {kRestore, newPacked, "fsync@csp_param.hex.new:EIO", "Copy error.\n" + file + failed},
        {kRestore, newPacked, "rename@csp_param.hex:EIO", "Copy error.\n" + file + failed},
        {kRestore, newPacked, "read@csp_param.rlg:EIO", "Copy error.\n" + copy + failed},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text + row.fault);
        const bool isBackup = row.command == kBackup;
        StrictServer scene(row.fault);
        scene.Open();
        scene.unit.Write(isBackup ? kParameterFile : kStickImage, row.source);
        scene.unit.Write(isBackup ? kStickImage : kParameterFile, "old");
        const std::string ownSum = SumLine(scene.unit.Read(kStickImage), kStickImage);
        if (isBackup || !row.sum.empty())
            scene.unit.Write(kStickSum, isBackup || row.sum == kOwnSum ? ownSum : row.sum);
        scene.unit.Mount("usb");

        const std::string answer = scene.Ask(row.command);

        EXPECT_EQ(After(isBackup ? "HD -> FD\n" : "FD -> HD\n", answer), row.text);
        EXPECT_EQ(scene.TakeLog(), answer);
        const std::string target = scene.unit.Read(isBackup ? kStickImage : kParameterFile);
        EXPECT_TRUE(target == (row.isReplaced ? (isBackup ? newPacked : newFile) : "old"));
        EXPECT_FALSE(scene.unit.Exists(kParameterFile + std::string(".new")));
        const bool isPulled = Count(scene.unit.Journal(), "medium pulled") > 0;
        EXPECT_EQ(scene.unit.Exists("medium/CSP_PARA.NEW"), isPulled);
        // Whichever image is there, the checksum has a line for it.
        const std::string sum = "\n" + scene.unit.Read(kStickSum);
        const std::string ownLine = SumLine(scene.unit.Read(kStickImage), kStickImage);
        const std::string numbers = "\n" + ownLine.substr(0, ownLine.rfind(' '));
        EXPECT_TRUE(!isBackup || sum.find(numbers) != std::string::npos) << sum;
    }
}

TEST(StrictCopy, MountsDeviceThatIsMountedThere)
{
    StrictServer scene("open@mounts#4:EACCES");
    scene.Open();
    scene.unit.Write(kParameterFile, ParameterFile(kNewData));
    const auto backUp = [&] { return After("HD -> FD\n", scene.Ask(kBackup)); };
    EXPECT_EQ(backUp(),
              "Floppy in not inserted.\n/mnt/floppy: not mounted; /mnt/usb: not mounted\n");

    scene.unit.Write("sim/device", "/dev/sda1");
    scene.unit.Mount("usb");
    EXPECT_EQ(backUp(), "Copy Success.\n") << "a partition";

    scene.unit.Pull();
    scene.unit.Insert();
    scene.unit.Mount("usb");
    EXPECT_EQ(backUp(), "Copy Success.\n") << "the stick has another name now";
    EXPECT_EQ(Count(scene.unit.Journal(), "mount(/dev/sdb, /mnt/usb/, vfat, 0xc0ed000a"), 1U);

    scene.unit.Write("sim/mounts", "/dev/sda /mnt/usb vfat rw 0 0\n");
    scene.unit.Write("sim/device", "/dev/sda");
    EXPECT_EQ(backUp(), "Copy Success.\n") << "what is mounted there can't be found out";

    scene.unit.Write("sim/device", "/dev/sdb");
    scene.unit.Write("sim/mounts",
                     "/dev/sdb /mnt/cdrom vfat ro 0 0\n/dev/sdb /mnt/usb vfat ro 0 0\n");
    EXPECT_EQ(backUp(), "Copy error.\n/dev/sdb: Device or resource busy, since it is mounted at "
                        "/mnt/cdrom, too\n");
}

// The groups that follow a copy or a search in the same read are dropped.
TEST(StrictServerLimits, OneCopyForOneRead)
{
    StrictServer scene;
    scene.Open();
    for (const char* command : {kBackup, kRestore, kFindUpdate, kFindParameters}) {
        std::string groups = command;
        for (int i = 0; i < 20; ++i)
            groups += std::string(" ") + command + " " + kVersion;
        const std::string answer = scene.Ask(groups);
        EXPECT_EQ(Count(answer, "Copying") + Count(answer, " File is not exsit.\n"), 1U) << answer;
        EXPECT_EQ(Count(answer, kServiceText), 0U) << answer;
    }
    EXPECT_EQ(scene.Ask(kVersion), kServiceText) << "another read";
}

TEST(StrictServerLimits, ReadBackEndsAtRecordWithoutProgress)
{
    const std::string base = Record(4, 0, "\x90\x04");
    const struct {
        std::vector<std::string> records;
        const char* next;  // address
    } rows[] = {
        {{":0000000000"}, "00000000"},
        {{base, base}, "90040000"},
        {{base, Record(0, 0, "")}, "90040000"},
        {{Record(4, 0, "\x90\x03")}, "00000000"},
        {{base, Record(0, 0, "data"), base}, "90040004"},
        {{base, Record(0, 0, "data") + "  "}, "90040000"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.records));
        StrictServer scene;
        scene.Say(Frames({"Status:Flash Idle", "Start READ"}));
        EXPECT_TRUE(scene.patcher.WaitForLine("NEXT   :"));
        scene.TakeReplies();
        scene.Say(Frames(row.records));
        EXPECT_EQ(
            scene.TakeReplies(),
            std::string("CSP Read Failed.\nwhat the CSP sent was not the next record, that of ") +
                row.next + "\nRebooting CSP...\n");
    }
}

// The kernel may find room for the text that has waited at the last moment, and then takes it.
TEST(StrictServerLimits, WriteToPeerThatDoesNotReadEnds)
{
    constexpr std::chrono::seconds kBound{5};
    for (const char* kind : {"text ", "<message_box "}) {
        SCOPED_TRACE(kind);
        StrictServer scene;
        scene.Open();
        const bool isText = kind[0] == 't';
        Connection& peer = isText ? *scene.controller : static_cast<Connection&>(scene.rcServer);
        const std::string line = kind + std::string(900, 'x');
        bool isClosed = false;
        for (int round = 0; round < 3 && !isClosed; ++round) {
            const auto before = UnitTime();
            for (int i = 0; i < 40000 && UnitTime() - before < kBound; ++i)
                scene.Say(Frames({line}));
            EXPECT_EQ(UnitTime() - before, kBound);
            isClosed = WaitUntil([&] { return peer.IsClosed(); }, std::chrono::seconds(1));
        }
        EXPECT_TRUE(isClosed);
        if (isText)
            scene.Connect();
        EXPECT_EQ(EndOf(scene.Ask(kVersion), kServiceText), kServiceText);
    }
}

TEST(StrictServerLimits, LogKeepsNewestEntries)
{
    constexpr std::size_t kMost = 0x200000;
    const std::string entry = "06/03/14/09:05:07 - old\n";
    std::string log;
    while (log.size() + entry.size() <= kMost)
        log += entry;
    StrictServer scene;
    scene.unit.Write(kServerLog, log);
    scene.Open();
    const std::string cut = scene.unit.Log();
    EXPECT_LT(cut.size(), kMost / 2 + 1000);
    EXPECT_EQ(cut.substr(0, 2 * entry.size()), entry + entry);
    EXPECT_EQ(Count(cut, " - CSP Read Failed.\n"), 1U) << "the entry that was too much";
    EXPECT_EQ(scene.Ask(kVersion), kServiceText);
    scene.unit.Write(kServerLog, std::string(kMost - 1, 'x') + "\n");
    EXPECT_EQ(scene.Ask(kVersion), kServiceText) << "a log of one line";
    EXPECT_LT(scene.unit.Log().size(), kMost / 2 + 1000);
    EXPECT_EQ(EndOf(scene.unit.Log(), "Update the Service Center.\n"),
              "Update the Service Center.\n");
}

TEST(StrictServerLimits, ListensAtOneAddress)
{
    Unit unit;
    unit.StartPiano({"--bad-checksum-at", "90040000"});
    const std::string port = OwnPort();
    unit.Start("diag_server", {"--strict", "--listen", "127.0.0.2", "-P", port});
    EXPECT_TRUE(unit.WaitForLog("CSP Read Failed.\n"));
    EXPECT_TRUE(Controller(std::stoi(port)).IsClosed());
    EXPECT_FALSE(Controller(std::stoi(port), 2).IsClosed());
}
