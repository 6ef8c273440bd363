// The strict mode: what it refuses before a link is opened, and what it compares at the end.

#include <filesystem>
#include <functional>

#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kUsageLine[] = "diag_server [-P Port] [-b] [-v] [-f filename]\n";

// Different for each test program, and below those that the system chooses.
std::string OwnPort()
{
    return std::to_string(10000 + getpid() % 20000);
}

}  // namespace

TEST(Strict, ReportsResultWithStatusAndChangesNothingIfItFails)
{
    const std::string image = FirmwareOf("V1", 0x3000);
    const std::string good = HexText(image, 32, "\r\n");
    const auto replace = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        const std::size_t at = text.find(from);
        text.replace(at, text.find('\n', at) + 1 - at, to);
        return [text](Unit& unit) { unit.Write("cwd/prog.hex", text); };
    };
    constexpr auto kPrivate = std::filesystem::perms::owner_read;
    const auto fail = [](const char* call) {
        return [call](Unit& unit) { unit.Set(std::string("SIMUNIT_FAULT=") + call); };
    };
    const Port taken;
    const std::string port = std::to_string(taken.Number());
    const std::string update = "-f prog.hex";
    const std::string read = "-P " + OwnPort();
    const std::string noFile = "need a file\n";
    const std::string noPort = "the port is not a number from 1 to 65535\n";
    const std::string socket = "/home/i2c_server_sock: ";
    const std::string keeps = "prog.hex: keeps its name, since ";
    const std::string unsaved = "csp_param.hex: the read-back is not saved: ";
    const char* const part = "--read-stop 90041000";
    const std::string cutShort = "so the unit does not load it; the file may be cut off\n";
    const struct {
        std::string words;
        int status;
        std::string error = {};   // its end, in front of the usage line
        const char* effect = "";  // the most: "links" opened, "flash" or parameter "file" changed
        const char* piano = "";
        std::function<void(Unit&)> arrange = [](Unit&) {};
    } rows[] = {
        {"-x " + update, 2, "option -- 'x'\n"},
        {"-x -h", 2, "option -- 'x'\n"},
        {"prog.hex", 2, "not an option: prog.hex\n"},
        {"-f", 2, "requires an argument -- 'f'\n"},
        {"-f ''", 2, "the file name is empty\n"},
        {"-f " + std::string(256, 'x'), 2, "file name is too long\n"},
        {"-P 1 -P 65535 -v", 2, noFile},
        {"--verify", 2, noFile},
        {"--verify -x", 2, "diag_server: invalid option -- 'x'\n"},
        {"-P 0", 2, noPort},
        {"-P 65536", 2, noPort},
        {"-P 80x", 2, noPort},
        {"-P 000080", 2, noPort},
        {"-f none", 1, "none: No such file or directory\n"},
        {"-f .", 1, ".: can't be used\n"},
        {update, 1, ": no end record (type 1): the board waits for more\n", "", "",
         replace(":00000001FF", "")},
        {"-v " + update, 1, cutShort, "", "", replace(":00000001FF", ":00000001FF")},
        {update, 1, "prog.hex:34: wrong checksum\n", "", "",
         replace(":20040000", ":20040000" + std::string(66, '0') + "\r\n")},
        {update, 1, "introduces: a line may be lost\n", "", "", replace(":20040000", "")},
        {update, 1, "prog.hex: errors not listed: 1\n", "", "",
         [](Unit& unit) { unit.Write("cwd/prog.hex", std::string(19, '\n')); }},
        {update, 1, kLogFolder + ": No such file or directory\n", "", "",
         [](Unit& unit) { unit.Remove(kLogFolder); }},
        {update, 1, kLogFolder + "/cspupdate.log: Read-only file system\n", "", "",
         fail("open@cspupdate.log:EROFS")},
        {update, 1, kLogFolder + "/diag_server.lock: Read-only file system\n", "", "",
         fail("open@diag_server.lock:EROFS")},
        {update, 1, kLogFolder + "/diag_server.lock: No space left on device\n", "", "",
         fail("write@diag_server.lock:ENOSPC")},
        {update, 1, socket + "No such file or directory\n", "", "--no-patcher"},
        {"", 1, socket + "No such file or directory\n", "", "--no-patcher"},
        {"-P " + port, 1, "port " + port + ": Address already in use\n"},
        {update, 1, "the MIDI Patcher could not be reached before, but can be now\n", "links", "",
         fail("write@i2c_server_sock:EPIPE")},
        {update, 1, "the update has failed\n", "links", "--silent"},
        {update, 0, "", "flash"},
        {"-v -b " + update, 0},
        {"-b " + update, 0, keeps + "V1.hex exists\n", "flash", "",
         [](Unit& unit) { unit.Write("cwd/V1.hex", ""); }},
        {"-b " + update, 0, keeps + "it has no version text\n", "flash", "",
         replace(":20040000", Record(0, 0x400, ". ." + std::string(29, '\0')) + "\r\n")},
        {"-b " + update, 0, keeps + "the rename has failed\n", "flash", "",
         fail("rename@V1.hex:EROFS")},
        {read, 0, "", "file"},
        {read, 1, unsaved + "its data aren't exactly the parameter flash\n", "links", part},
        {read, 1, cutShort, "links", part, fail("fwrite@csp_param.hex.new#2:ENOSPC")},
        {read, 1, unsaved + "Read-only file system\n", "links", part,
         fail("open@csp_param.hex.new#2:EROFS")},
        {read, 1, unsaved + "Permission denied\n", "links", "",
         fail("rename@csp_param.hex:EACCES")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words + ": " + row.error);
        Unit unit;
        unit.Write("cwd/prog.hex", good);
        const std::string parameters = unit.Path("cwd/csp_param.hex");
        unit.Write("cwd/csp_param.hex", "old");
        std::filesystem::permissions(parameters, kPrivate);
        row.arrange(unit);
        Process& piano = unit.StartPiano(Split(row.piano));

        Process& program = unit.Run(Split("--strict " + row.words));

        EXPECT_EQ(program.Wait(), row.status);
        const std::string error = row.error + (row.status == 2 ? kUsageLine : "");
        const std::string shown = program.Error();
        EXPECT_EQ(error.empty() ? shown : EndOf(shown, error), error);
        EXPECT_EQ(Count(unit.Journal(), "ioctl") > 0, *row.effect != '\0');
        piano.Kill(SIGTERM);
        const std::string flash = unit.Flash(kImageStart, image.size());
        EXPECT_EQ(flash != std::string(flash.size(), '\xFF'), row.effect == std::string("flash"));
        EXPECT_EQ(unit.Read("cwd/csp_param.hex") != "old", row.effect == std::string("file"));
        EXPECT_EQ(std::filesystem::status(parameters).permissions(), kPrivate);
        EXPECT_TRUE(unit.Exists("cwd/prog.hex") && !unit.Exists("cwd/csp_param.hex.new"));
        const std::string log = unit.Log() + unit.Log(kUpdateLog);
        const bool isLogged = unit.Exists(kLogFolder) && (row.status == 1 || *row.effect != '\0');
        EXPECT_EQ(log.empty(), !isLogged);
        EXPECT_TRUE(!isLogged || log.find(row.error) != std::string::npos);
    }
}

TEST(Strict, ExitsWhenPortIsTakenDuringStart)
{
    Unit unit;
    unit.StartPiano();
    const std::string port = OwnPort();
    Process& server = unit.Start("diag_server", {"--strict", "-P", port});
    EXPECT_TRUE(unit.WaitForLog("Diag Server Start Now.\n"));
    const Port taken(std::stoi(port));

    EXPECT_EQ(server.Wait(), 1);
    EXPECT_EQ(server.Error(), "diag_server: port " + port + ": Address already in use\n");
}

TEST(Strict, StartsOnceAndRefusesDamagedFiles)
{
    const std::string image = HexText(FirmwareOf("V1", 0x3000), 32, "\r\n");
    const std::string damaged = image.substr(0, image.size() - 13);
    ServerWithPiano scene({"--strict", "-P", OwnPort()});
    scene.unit.Mount("usb");
    scene.unit.Write("medium/csp_prog.hex", damaged);
    scene.unit.Write(kParameterFile, damaged);

    Process& second = scene.unit.Run({"--strict", "-P", OwnPort()});
    scene.Ask(kFindParameters, "CSP Parameter : ");
    scene.Ask(kUpdateParameters, "Cannot execute Parameter Update.\n");
    scene.Ask(kFindUpdate, "V1\n");
    scene.Ask(kUpdate, "Cannot Execute CSP Update.\n");
    scene.unit.Write("medium/csp_prog.hex", image);
    scene.Ask(kFindUpdate, "V1\n");
    scene.Ask(kUpdate, "CSP Update Success.\n");

    EXPECT_EQ(second.Wait(), 1);
    EXPECT_EQ(second.Error(), "diag_server: " + kLogFolder + "/diag_server.lock: process " +
                                  std::to_string(scene.server.Id()) + " is running already\n");
    const std::string found = ":385: no end record (type 1): the board waits for more\n";
    const std::string parameters = std::string(kParameterFile) + found;
    const std::string firmware = "/mnt/usb/csp_prog.hex" + found;
    EXPECT_EQ(scene.server.Error(), "diag_server: " + parameters + "diag_server: " + firmware);
    const std::string log = LogTexts(scene.unit);
    EXPECT_NE(log.find(parameters + "Cannot execute Parameter Update.\n"), std::string::npos);
    EXPECT_NE(log.find(firmware + "Cannot Execute CSP Update.\n"), std::string::npos);
}

TEST(Strict, ComparesFlashWithFileAfterUpdate)
{
    const std::string before =
        Record(4, 0, "\x90\x03") + "\r\n" + Record(0, 0xFFF0, std::string(16, 'x')) + "\r\n";
    const std::string image = before + HexText(FirmwareOf("V1", 0x1000), 32, "\r\n");
    const std::string rest =
        Record(4, 0, "\x90\x0A") + "\r\n" + Record(0, 0, std::string(16, 'x')) + "\r\n";
    const struct {
        std::string added;     // to the file, in front of its end record
        std::size_t changed;   // bytes of flash, while the CSP restarts
        const char* piano;     // from then on
        std::size_t attempts;  // to read it
        int status;
        std::string error = {};  // its end
    } rows[] = {
        {rest, 0, "", 1, 0,
         "diag_server: not verified: 9003FFF0 to 9003FFFF\n"
         "diag_server: not verified: 900A0000 to 900A000F\n"},
        {"", 2, "", 1, 1, "bytes: 2, first at 90040800: 00 in the flash, F4 in the file\n"},
        {"", 0, "--silent", 2, 1, "the flash is not readable\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        Unit unit;
        unit.Write("cwd/prog.hex", std::string(image).insert(image.size() - 13, row.added));
        Process& piano = unit.StartPiano({"--size", "A1000"});
        Process& program = unit.Start("diag_server", Split("--strict --verify -b -f prog.hex"));
        EXPECT_TRUE(unit.WaitForJournal("ioctl(/dev/PciDsp, 33, 0xc00)"));
        piano.Kill(SIGTERM);
        std::string flash = unit.Read("flash.bin");
        flash.replace(0x40800, row.changed, row.changed, '\0');
        const std::string loaded = unit.Write("sim/loaded", flash);
        unit.StartPiano(Split("--size A1000 --load " + loaded + " " + row.piano));

        EXPECT_EQ(program.Wait(), row.status);

        EXPECT_EQ(EndOf(program.Error(), row.error), row.error);
        EXPECT_EQ(Count(unit.Journal(), "usleep(500000)\n"), 1U + row.attempts);
        EXPECT_EQ(Count(unit.Journal(), "ioctl(/dev/PciDsp, 33, 0xc00) = 0\n"), 2U);
        EXPECT_EQ(Count(unit.Journal(), "exit descriptors=0\n"), 1U);
        EXPECT_FALSE(unit.Exists("cwd/csp_param.hex"));
    }
}
