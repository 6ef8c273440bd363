// The strict mode: what it refuses before a link is opened, and what it compares at the end.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kFirstLine[] = ":20040000";  // begins the second line of the image
constexpr char kEnd[] = ":00000001FF\r\n";

const std::string kImage = Firmware(0x3000, "V1");
const std::string kGood = HexText(kImage, 32, "\r\n");

// The firmware file with the line that begins so replaced.
std::string FileWith(const std::string& line, const std::string& replacement)
{
    const std::size_t at = kGood.find(line);
    return std::string(kGood).replace(at, kGood.find('\n', at) + 1 - at, replacement);
}

// 16 bytes at the start of 64 KiB of the flash.
std::string Row(const std::string& upper)
{
    return Record(4, 0, upper) + "\r\n" + Record(0, 0, std::string(16, 'x')) + "\r\n";
}

}  // namespace

TEST(Strict, EndsWithStatusAndReason)
{
    enum { Nothing, OpenedLinks, WroteFlash };
    const Port taken;
    const std::string port = std::to_string(taken.Number());
    const std::string update = "-f prog.hex";
    const std::string lock = kLogFolder + "/diag_server.lock: ";
    const std::string noSocket = "/home/i2c_server_sock: No such file or directory\n";
    const std::string powerFailed = "/dev/PciDsp: Input/output error\n";
    const std::string kept = "prog.hex: keeps its name, since ";
    const std::string outside = Row("\x27\x91") + kGood;
    const struct {
        std::string words;
        std::string error;         // the end of standard error, which is in a log, too
        std::string file = kGood;  // prog.hex
        const char* faults = "";   // of a call and of the piano
        int done = Nothing;
        int status = 1;
    } rows[] = {
        // Refused before a link is opened.
        {"-f none", "none: No such file or directory\n"},
        {"-f .", ".: can't be used\n"},
        {update, ": no end record (type 1): the board waits for more\n", FileWith(kEnd, "")},
        {"-v " + update, "so the unit does not load it; the file may be cut off\n",
         FileWith(kEnd, ":00000001FF")},
        {update, "prog.hex:34: wrong checksum\n",
         FileWith(kFirstLine, kFirstLine + std::string(66, '0') + "\r\n")},
        {update, "introduces: a line may be lost\n", FileWith(kFirstLine, "")},
        {update, "prog.hex: errors not listed: 1\n", std::string(19, '\n')},
        {update, "data at 27910000, outside the flash (90000000 to 90FFFFFF)\n", outside},
        {update, "prog.hex: File too large\n", Repeat("\n", 0x1000001)},
        {update, kLogFolder + "/cspupdate.log: Read-only file system\n", kGood,
         "open@cspupdate.log:EROFS"},
        {update, lock + "Read-only file system\n", kGood, "open@diag_server.lock:EROFS"},
        {update, lock + "No space left on device\n", kGood, "write@diag_server.lock:ENOSPC"},
        {update, noSocket, kGood, "--no-patcher"},
        {"", noSocket, kGood, "--no-patcher"},
        {"-P " + port, "port " + port + ": Address already in use\n"},
        {"--listen 203.0.113.1", "port 4917 at 203.0.113.1: Cannot assign requested address\n"},
        // Failures of the update.
        {update, "the MIDI Patcher could not be reached before, but can be now\n", kGood,
         "write@i2c_server_sock:EPIPE", OpenedLinks},
        {update, "/home/i2c_server_sock: Broken pipe\n", kGood, "write@i2c_server_sock#0:EPIPE",
         OpenedLinks},
        {update, "the update has failed\n", kGood, "--silent", OpenedLinks},
        {update, powerFailed, kGood, "ioctl@PciDsp#2:EIO", WroteFlash},
        {"--verify " + update, "/dev/PciDsp: No such file or directory\n", kGood,
         "open@PciDsp#4:ENOENT", WroteFlash},
        // Successes. V2.hex is there, and dangles.
        {update, "", kGood, "", WroteFlash, 0},
        {"-b " + update, kept + "it has no version text\n",
         FileWith(kFirstLine, Record(0, 0x400, ". ." + std::string(29, '\0')) + "\r\n"), "",
         OpenedLinks, 0},
        {"-b " + update, kept + "the rename has failed\n", kGood, "rename@V1.hex:EROFS", WroteFlash,
         0},
        {"-b " + update, kept + "V2.hex exists\n", HexText(Firmware(0x3000, "V2"), 32, "\r\n"), "",
         OpenedLinks, 0},
        // Nobody has described the flash of the other peer, and -v writes nothing.
        {"-v -a prog.hex",
         "prog.hex:2: data at 27910000, outside the flash (90000000 to 90FFFFFF)\n", outside, "",
         Nothing, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words + row.error);
        Unit unit(row.faults);
        unit.Write("cwd/prog.hex", row.file);
        std::filesystem::create_symlink("nowhere", unit.Path("cwd/V2.hex"));
        Process& piano = unit.StartPiano();

        Process& program = unit.Run(Split("--strict " + row.words));

        EXPECT_EQ(program.Wait(), row.status);
        EXPECT_EQ(EndOf(program.Error(), row.error), row.error);
        const std::string logs = unit.Log() + unit.Log(kUpdateLog);
        EXPECT_TRUE(Contains(logs, row.error));
        EXPECT_EQ(Contains(unit.Journal(), "ioctl"), row.done != Nothing);
        piano.Kill(SIGTERM);
        EXPECT_EQ(unit.Flash(kImage.size()) == kImage, row.done == WroteFlash);
        EXPECT_TRUE(unit.Read("cwd/prog.hex") == row.file);
        EXPECT_TRUE(std::filesystem::is_symlink(unit.Path("cwd/V2.hex")));
    }
}

// A read-back that isn't saved has failed: the server goes on and takes commands.
TEST(StrictReadBack, ReplacesFileWholeOrReportsFailure)
{
    const std::pair<std::string, const char*> rows[] = {
        {"", ""},
        {"csp_param.hex: it doesn't cover exactly the parameter flash", "--read-stop 90041000"},
        {"the CSP didn't send the next record, which begins at 90042000",
         "--bad-checksum-at 90042000"},
        {"csp_param.hex: No space left on device", "write@csp_param.hex.new:ENOSPC"},
        {"csp_param.hex: Input/output error", "fsync@csp_param.hex.new:EIO"},
        {"csp_param.hex.new: Read-only file system", "open@csp_param.hex.new:EROFS"},
        {"csp_param.hex: Permission denied", "rename@csp_param.hex:EACCES"},
    };
    constexpr auto kPrivate = std::filesystem::perms::owner_read;
    for (const auto& [reason, faults] : rows) {
        SCOPED_TRACE(reason);
        const bool isSaved = reason.empty();
        Scene scene(faults);
        const std::string file = scene.Write("cwd/csp_param.hex", "old");
        std::filesystem::permissions(file, kPrivate);
        scene.StartWithPiano(StrictWords());
        scene.Connect();

        EXPECT_TRUE(scene.WaitForLog("Rebooting CSP...5sec\n"));
        EXPECT_TRUE(!isSaved || scene.server->Wait() == 0);

        const std::string result =
            isSaved ? "CSP Read Success.\n" : "CSP Read Failed.\n" + reason + "\n";
        EXPECT_EQ(Count(scene.LogTexts(), "CSP Read "), 1U);
        EXPECT_TRUE(Contains(scene.LogTexts(), result));
        EXPECT_TRUE(Contains(scene.controller->Received(), result));
        EXPECT_EQ(scene.server->IsRunning(), !isSaved);
        EXPECT_EQ(ReadFile(file) == "old", !isSaved);
        EXPECT_EQ(std::filesystem::status(file).permissions(), kPrivate);
        EXPECT_FALSE(scene.Exists("cwd/csp_param.hex.new"));
    }
}

TEST(Strict, ExitsWhenPortIsTakenDuringStart)
{
    Scene scene;
    scene.StartWithPiano(StrictWords());
    EXPECT_TRUE(scene.WaitForLog("Diag Server Start Now.\n"));
    const Port taken(std::stoi(OwnPort()));

    EXPECT_EQ(scene.server->Wait(), 1);
    EXPECT_EQ(scene.server->Error(),
              "diag_server: port " + OwnPort() + ": Address already in use\n");
}

// It takes a part of the first block only.
TEST(Strict, EndsUpdateIfMidiPatcherDoesNotRead)
{
    Unit unit;
    unit.Write("cwd/prog.hex", kGood);
    MidiPeer patcher(unit.Path(kMidiPatcherSocket));
    Process& program = unit.Start("diag_server", Split("--strict -f prog.hex"));
    ASSERT_TRUE(patcher.Accept() && patcher.SendLines({"Status:Flash Idle", "Start WRITE ?"}));

    EXPECT_EQ(unit.AwaitEnd(program), 1);
    EXPECT_EQ(EndOf(program.Error(), "the update has failed\n"), "the update has failed\n");
}

TEST(Strict, ComparesFlashWithFileAfterUpdate)
{
    const std::string below =
        Record(4, 0, "\x90\x03") + "\r\n" + Record(0, 0xFFF0, std::string(16, 'x')) + "\r\n";
    const struct {
        std::size_t size;      // of the image
        std::string added;     // to the file, in front of its end record
        std::size_t changed;   // bytes of flash, while the CSP restarts
        const char* piano;     // from then on
        std::size_t attempts;  // to read it
        int status;
        std::string error;  // its end
    } rows[] = {
        {0x60000, Row("\x90\x0A"), 0, "", 1, 0,
         "diag_server: not verified: 9003FFF0 to 9003FFFF\n"
         "diag_server: not verified: 900A0000 to 900A000F\n"},
        {0x1000, "", 2, "", 1, 1, "bytes: 2, first at 90040800: 00 in the flash, F4 in the file\n"},
        {0x1000, "", 0, "--silent", 2, 1, "the flash is not readable\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        Unit unit;
        const std::string image = below + HexText(Firmware(row.size, "V1"), 32, "\r\n");
        unit.Write("cwd/prog.hex", std::string(image).insert(image.size() - 13, row.added));
        Process& piano = unit.StartPiano();
        Process& program = unit.Start("diag_server", Split("--strict --verify -b -f prog.hex"));
        EXPECT_TRUE(unit.WaitForJournal("ioctl(/dev/PciDsp, 33, 0xc00)"));
        piano.Kill(SIGTERM);
        std::string flash = unit.Read("flash.bin");
        flash.replace(0x40800, row.changed, row.changed, '\0');
        const std::string loaded = unit.Write("sim/loaded", flash);
        unit.StartPiano(Split("--load " + loaded + " " + row.piano));

        EXPECT_EQ(unit.AwaitEnd(program), row.status);

        EXPECT_EQ(EndOf(program.Error(), row.error), row.error);
        EXPECT_EQ(Count(unit.Journal(), "usleep(500000)\n"), 1U + row.attempts);
        EXPECT_EQ(Count(unit.Journal(), "ioctl(/dev/PciDsp, 33, 0xc00) = 0\n"), 2U);
        EXPECT_FALSE(unit.Exists("cwd/csp_param.hex"));
    }
}
