// The strict server: what it refuses to load, to copy or to wait for, and what the controller sees.

#include <functional>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"
#include "SumFile.h"

namespace {

constexpr char kNoUpdateFile[] = "Update File is not exsit.\n";
constexpr char kUpdateRefused[] = "Cannot Execute CSP Update.\n";
const std::string kStickImage = "medium/csp_param.rlg";
const std::string kStickSum = "medium/csp_param.sum";

// What follows the first text in the answer.
std::string After(const std::string& text, const std::string& answer)
{
    return Contains(answer, text) ? answer.substr(answer.find(text) + text.size()) : "no " + text;
}

// One call of the server fails, unless `fault` is empty.
struct StrictServer : Scene {
    explicit StrictServer(const std::string& fault = "") : Scene(fault)
    {
        OpenWithPeers(StrictWords());
    }
};

}  // namespace

TEST(StrictSearch, ReportsDamageAtOnceAndRefusesUpdate)
{
    const std::string good = HexText(Firmware(0x1000, "V1"), 32, "\r\n");
    const std::string packed = PackedText(Firmware(0x1000, "V1"));
    const std::string plain = "/mnt/usb/csp_prog.hex:";
    const std::string compressed = "/mnt/usb/csp_prog.rlg: ";
    const std::string unverified =
        compressed + "not verified, since there is no /mnt/usb/csp_prog.sum\n";
    const struct {
        const char* type;
        std::string bytes;
        bool isShown;         // its version, not that there is no file
        std::string reasons;  // also those of the refused update; none: it isn't refused
        std::string note = {};
        std::string sum = {};  // of the file next to it; empty: none
    } rows[] = {
        {"hex", good, true, ""},
        {"hex", good.substr(0, good.size() - 13), true,
         plain + "129: no end record (type 1): the board waits for more\n"},
        {"hex", good.substr(0, 17) + "\r\n\r\n\r\n\r\n" + good.substr(17), true,
         plain + "2: a blank line before the end record\n" + plain +
             "3: a blank line before the end record\nand more in the log: 2\n"},
        {"hex", Repeat("\n", 0x1000001), false, plain + " File too large\n"},
        {"rlg", packed, true, "", unverified},
        {"rlg", packed, false, compressed + "damaged, since /mnt/usb/csp_prog.sum doesn't match\n",
         "", "1 2 csp_prog.rlg\n"},
        {"rlg", packed, false, "/mnt/usb/csp_prog.sum: File too large\n", "", Repeat("\n", 4097)},
        {"rlg", Repeat("x", 0x1000001), false, compressed + "File too large\n"},
        {"rlg", "\x04\x90" + Repeat("\xDDx\xFF", 66000), false,
         compressed + "cut off, or larger than the flash when expanded\n", unverified},
    };
    StrictServer scene;
    const std::string noSearch = std::string(kUpdateRefused) + "no search has found a file\n";
    EXPECT_EQ(scene.Ask(kUpdate), noSearch);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reasons);
        scene.Write(std::string("mnt/usb/csp_prog.") + row.type, row.bytes);
        if (!row.sum.empty())
            scene.Write("mnt/usb/csp_prog.sum", row.sum);

        const std::string found = scene.Ask(kFindUpdate);

        EXPECT_EQ(After(row.isShown ? "V1\n" : kNoUpdateFile, found), row.note + row.reasons);
        EXPECT_TRUE(Contains(scene.TakeLog(), row.reasons.substr(0, row.reasons.find('\n'))));
        if (!row.reasons.empty()) {
            EXPECT_EQ(scene.Ask(kUpdate), kUpdateRefused + row.reasons);
        }
        scene.Remove(std::string("mnt/usb/csp_prog.") + row.type);
        scene.Remove("mnt/usb/csp_prog.sum");
    }
    const std::string reason = "the last search has found no file\n";
    EXPECT_EQ(scene.Ask(kFindUpdate), kNoUpdateFile + reason);
    EXPECT_EQ(scene.Ask(kUpdate), kUpdateRefused + reason);
    scene.Write(kParameterFile, good.substr(0, good.size() - 13));
    EXPECT_TRUE(Contains(scene.Ask(kFindParameters), "/csp_param.hex:129: no end record"));
}

TEST(StrictServer, UpdatesOnceForEachSearchAndKeepsOthersOut)
{
    Scene scene;
    scene.OpenWithPiano(StrictWords());
    const std::string firmware = Firmware(0x1000, "V1");
    scene.Write(kUsbFirmware, HexText(firmware, 32, "\r\n"));
    Process& second = scene.Run(StrictWords());

    scene.Ask(kFindUpdate, "V1\n");
    scene.Ask(kUpdate, "CSP Update Success.\n");
    scene.Ask(kUpdate, std::string(kUpdateRefused) +
                           "the file that the last search has found was used; search again\n");

    EXPECT_TRUE(scene.Flash(firmware.size()) == firmware);
    EXPECT_EQ(second.Wait(), 1);
    EXPECT_EQ(second.Error(), "diag_server: " + kLogFolder + "/diag_server.lock: process " +
                                  std::to_string(scene.server->Id()) + " is running already\n");
}

// Either copy replaces its target whole or not at all. A failure comes with one line, the reason.
TEST(StrictCopy, ReplacesTargetOnlyByCompleteReadBack)
{
    constexpr std::size_t kReadBackSize = 0x60000;
    const std::string data = std::string(kReadBackSize - 2, 'n') + "\xDD\xDD";
    const std::string hex = HexText(data, 32, "\r\n");
    const std::string packed = PackedText(data);
    const std::string file = kParameterFile;
    const std::string copy = "/mnt/usb/csp_param.rlg";
    const std::string success = "Copy Success.\n";
    const std::string failed = ": Input/output error\n";
    const std::string full = ": No space left on device\n";
    const std::string incomplete = ": it doesn't cover exactly the parameter flash\n";
    const std::string copyFailed = "Copy error.\n" + copy;
    const std::string stickSum = "/mnt/usb/csp_param.sum";
    const std::string sumFailed = "Copy error.\n" + stickSum;
    const std::string inPlace = "; the new copy is in place\n";
    const std::string fileFailed = "Copy error.\n" + file;
    const std::string damaged = "Binary file error.\n" + file;
    const struct {
        const char* command;
        std::string source;
        const char* fault;
        std::string text;
        bool isReplaced = false;
        std::string sum = {};   // next to a source on the medium
        bool hasOldSum = true;  // a target on the medium has its checksum
    } rows[] = {
        {kBackup, hex, "", success, true},
        {kBackup, hex.substr(0, 2434), "",
         damaged + ":33: the last line has no line end, so the unit does not load it; the file may "
                   "be cut off\n"},
        {kBackup, HexText("data", 4, "\r\n"), "", damaged + incomplete},
        {kBackup, hex, "write@CSP_PARA.NEW:ENOSPC", "Free Disk space error.\n" + copy + full},
        {kBackup, hex, "fsync@CSP_PARA.NEW:EIO", copyFailed + failed},
        {kBackup, hex, "fsync@CSP_SUM.NEW:EIO", sumFailed + failed},
        {kBackup, hex, "fsync@CSP_PARA.NEW:pull", copyFailed + failed},
        {kBackup, hex, "rename@csp_param.rlg:EIO", copyFailed + failed},
        {kBackup, hex, "syncfs@medium:EIO", sumFailed + ": replaced, but not flushed" + failed},
        {kBackup, hex, "syncfs@medium#2:ENOSPC",
         copyFailed + ": replaced, but not flushed: No space left on device" + inPlace, true},
        {kBackup, hex, "syncfs@medium#3:EIO", copyFailed + ": replaced, but not verified" + failed,
         true},
        // Without a checksum on the medium, the image is replaced first, but not without room for
        // the checksum's name, which the third opening takes.
        {kBackup, hex, "open@csp_param.sum#3:ENOSPC", "Free Disk space error.\n" + stickSum + full,
         false, "", false},
        {kBackup, hex, "rename@csp_param.sum:EIO", sumFailed + ": Input/output error" + inPlace,
         true, "", false},
        {kRestore, packed, "", success, true, SumLine(packed, kStickImage)},
        {kRestore, packed, "",
         success + copy + ": not verified, since there is no /mnt/usb/csp_param.sum\n", true},
        {kRestore, packed, "",
         copyFailed + ": damaged, since /mnt/usb/csp_param.sum doesn't match\n", false,
         "1 2 csp_param.rlg\n"},
        {kRestore, packed.substr(0, 2434), "",
         copyFailed + ": cut off, or larger than the flash when expanded\n"},
        {kRestore, packed.substr(0, 2432), "", copyFailed + ", expanded" + incomplete},
        {kRestore, packed.substr(0, 2), "", copyFailed + ", expanded:1: the file has no data\n"},
        {kRestore, "\x05" + packed.substr(1), "", copyFailed + ", expanded" + incomplete},
        {kRestore, packed, "write@csp_param.hex.new:ENOSPC", fileFailed + full},
        {kRestore, packed, "fsync@csp_param.hex.new:EIO", fileFailed + failed},
        {kRestore, packed, "rename@csp_param.hex:EIO", fileFailed + failed},
        {kRestore, packed, "read@csp_param.rlg:EIO", copyFailed + failed},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text + row.fault);
        const bool isBackup = row.command == kBackup;
        const std::string target = isBackup ? kStickImage : file;
        StrictServer scene(row.fault);
        scene.Write(isBackup ? file : kStickImage, row.source);
        scene.Write(target, "old");
        const std::string sum = isBackup && row.hasOldSum ? SumLine("old", kStickImage) : row.sum;
        if (!sum.empty())
            scene.Write(kStickSum, sum);
        scene.Mount("usb");

        const std::string answer = scene.Ask(row.command);

        EXPECT_EQ(After(isBackup ? "HD -> FD\n" : "FD -> HD\n", answer), row.text);
        EXPECT_EQ(scene.TakeLog(), answer);
        EXPECT_TRUE(scene.Read(target) == (!row.isReplaced ? "old" : isBackup ? packed : hex));
        EXPECT_FALSE(scene.Exists(file + ".new"));
        EXPECT_EQ(scene.Exists("medium/CSP_PARA.NEW"), Contains(row.fault, "pull"));
        EXPECT_TRUE(!isBackup || *row.fault == '\0' || Contains(scene.Journal(), "syncfs("))
            << "the work files may stay on the medium";
        // Whichever image is there, the checksum has a line for it.
        const std::string left = scene.Read(kStickSum);
        EXPECT_TRUE(!isBackup || SumMatches(left, scene.Read(target)) ||
                    (!row.hasOldSum && left.empty()));
    }
}

TEST(StrictCopy, MountsDeviceThatIsMountedThere)
{
    StrictServer scene("open@mounts#5:EACCES");
    scene.Write(kParameterFile, HexText(std::string(0x60000, 'n'), 32, "\r\n"));
    const auto backUp = [&] { return After("HD -> FD\n", scene.Ask(kBackup)); };
    EXPECT_EQ(backUp(),
              "Floppy in not inserted.\n/mnt/floppy: not mounted; /mnt/usb: not mounted\n");
    scene.Mount("usb");
    EXPECT_EQ(After("FD -> HD\n", scene.Ask(kRestore)),
              "Parameter file is not exists.\n/mnt/usb/csp_param.rlg: No such file or directory\n");

    scene.Write("sim/device", "/dev/sda1");
    scene.Mount("usb");
    EXPECT_EQ(backUp(), "Copy Success.\n") << "a partition";

    scene.Write("sim/device", "/dev/sdb");
    scene.Mount("usb");
    EXPECT_EQ(backUp(), "Copy Success.\n") << "the stick has another name now";
    EXPECT_EQ(Count(scene.Journal(), "mount(/dev/sdb, /mnt/usb/, vfat, 0xc0ed000a"), 1U);

    scene.Write("sim/mounts", "/dev/sda /mnt/usb vfat rw 0 0\n");
    scene.Write("sim/device", "/dev/sda");
    EXPECT_EQ(backUp(), "Copy Success.\n") << "what is mounted there can't be found out";

    scene.Write("sim/device", "/dev/sdb");
    scene.Write("sim/mounts", "/dev/sdb /mnt/cdrom vfat ro 0 0\n/dev/sdb /mnt/usb vfat ro 0 0\n"
                              "/dev/sdc /mnt/other vfat ro 0 0\n");
    EXPECT_EQ(backUp(), "Copy error.\n/dev/sdb: Device or resource busy, since it is mounted at "
                        "/mnt/cdrom, too\n");
}

// The groups that follow a copy or a search in the same read are dropped.
TEST(StrictServerLimits, OneCopyForOneRead)
{
    StrictServer scene;
    for (const char* command : {kBackup, kRestore, kFindUpdate, kFindParameters}) {
        const std::string groups = Repeat(std::string(command) + " " + kVersion + " ", 20);
        const std::string answer = scene.Ask(groups);
        EXPECT_EQ(Count(answer, "Copying") + Count(answer, " File is not exsit.\n"), 1U) << answer;
        EXPECT_EQ(Count(answer, kServiceText), 0U) << answer;
    }
    EXPECT_EQ(scene.Ask(kVersion), kServiceText) << "another read";
}

TEST(StrictServerLimits, ReadBackEndsAtRecordWithoutProgress)
{
    const std::string base = UpperRecord(0);
    const std::string data = Record(0, 0, "data");
    const std::pair<Words, const char*> rows[] = {
        {{":0000000000"}, "90040000"},          {{base, base}, "90040000"},
        {{base, Record(0, 0, "")}, "90040000"}, {{Record(4, 0, "\x90\x03")}, "90040000"},
        {{base, data, base}, "90040004"},       {{base, data + "  "}, "90040000"},
    };
    const std::string reason = "the CSP didn't send the next record, which begins at ";
    for (const auto& [records, next] : rows) {
        Scene scene("ioctl@PciDsp#2:EIO");
        scene.StartWithPeers(StrictWords());
        scene.StartReading();
        scene.Say(Frames(records));
        scene.Pass(std::chrono::seconds(10));
        EXPECT_EQ(scene.TakeReplies(), "CSP Read Failed.\n" + reason + next +
                                           "\nRebooting CSP...\n/dev/PciDsp: Input/output error\n");
    }
}

// The kernel may find room for the text that has waited at the last moment, and then takes it.
TEST(StrictServerLimits, WriteToPeerThatDoesNotReadEnds)
{
    StrictServer scene;
    const std::string text(900, 'x');
    // The MIDI Patcher comes last, since its link isn't opened again while groups arrive.
    using namespace std::chrono_literals;
    const std::tuple<Connection*, std::chrono::seconds, std::function<void()>> rows[] = {
        {scene.controller.get(), 5s, [&] { scene.Say(Frames({text})); }},
        {&*scene.rcServer, 5s, [&] { scene.Say(Frames({"<message_box " + text})); }},
        {&*scene.patcher, 30s, [&] { scene.Send(Repeat("90 3C 40 00 ", 500)); }},
    };
    for (const auto& [peer, bound, write] : rows) {
        bool isClosed = false;
        for (int round = 0; round < 3 && !isClosed; ++round) {
            const auto before = UnitTime();
            for (int i = 0; i < 40000 && UnitTime() - before < bound; ++i)
                write();
            EXPECT_EQ(UnitTime() - before, bound);
            isClosed = WaitUntil([peer = peer] { return peer->IsClosed(); }, 1s);
        }
        EXPECT_TRUE(isClosed) << bound.count();
        scene.Connect();
        EXPECT_EQ(EndOf(scene.Ask(kVersion), kServiceText), kServiceText);
    }
}

TEST(StrictServerLimits, LogKeepsNewestHalf)
{
    const std::string entry = "06/03/14/09:05:07 - old\n";
    const std::string full = Repeat(entry, 0x200000 / entry.size());
    StrictServer scene;
    scene.Write(kServerLog, full);
    EXPECT_EQ(scene.Run(StrictWords()).Wait(), 1);
    EXPECT_TRUE(scene.Log() == full) << "a second server";
    EXPECT_EQ(scene.Ask(kVersion), kServiceText);
    EXPECT_TRUE(Contains(scene.LogTexts(), "\nUpdate the Service Center.\n"));
    EXPECT_LT(scene.Log().size(), full.size() / 2 + 200);

    Unit withoutPatcher;
    withoutPatcher.Write(kServerLog, full);
    EXPECT_EQ(withoutPatcher.Run(StrictWords()).Wait(), 1);
    EXPECT_LT(withoutPatcher.Log().size(), full.size() / 2 + 200) << "a start that is refused";
}

TEST(StrictServerLimits, ListensAtOneAddress)
{
    Scene scene;
    scene.StartWithPeers({"--strict", "--listen", "127.0.0.2", "-P", OwnPort()});
    EXPECT_TRUE(scene.controller->IsClosed());
    EXPECT_FALSE(Controller(scene.Port(), 2).IsClosed());
}
