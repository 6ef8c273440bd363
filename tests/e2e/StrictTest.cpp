// The careful mode: what it refuses before a link is opened, and what it compares at the end.

#include <functional>

#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kUsageLine[] = "diag_server [-P Port] [-b] [-v] [-f filename]\n";

constexpr char kLock[] = "/usr/local/lib/diag/diag_server.lock";

// Of each test program its own, below those that the system chooses.
std::string OwnPort()
{
    return std::to_string(10000 + getpid() % 20000);
}

// What comes before the text, with the text in the place of all that follows it.
std::string Cut(const std::string& all, const std::string& from, const std::string& text)
{
    return all.substr(0, all.find(from)) + text;
}

}  // namespace

TEST(Strict, RefusesMistakesOnCommandLine)
{
    const std::string version = "Diag Server Ver.0.26\n";
    const std::string fileVersion = version + "CSP File Version: V1\n";
    const std::string needsFile = "diag_server: -v, -b, -c and --verify need a file\n";
    const std::string badPort = "diag_server: the port is no number from 1 to 65535\n";
    const struct {
        Unit::Words words;
        int status;
        std::string output;
        std::string error;  // its end, without the usage line after a mistake
    } rows[] = {
        {{"--version", "-x"}, 0, version, ""},
        {{"--strict", "-vf", "prog.hex"}, 0, fileVersion, ""},
        {{"-vf", "prog.hex", "--strict"}, 0, fileVersion, "option -- 't'\n"},
        {{"--strict", "-h", "-x"}, 0, "", kUsageLine},
        {{"--strict", "-xf", "prog.hex"}, 2, "", "option -- 'x'\n"},
        {{"--strict", "prog.hex"}, 2, "", "diag_server: no option: prog.hex\n"},
        {{"--strict", "-f"}, 2, "", "requires an argument -- 'f'\n"},
        {{"--strict", "-f", ""}, 2, "", "diag_server: the file name is empty\n"},
        {{"--strict", "-f", std::string(256, 'x')}, 2, "", "file name is too long\n"},
        {{"--strict", "-v"}, 2, "", needsFile},
        {{"--strict", "-b"}, 2, "", needsFile},
        {{"--strict", "--verify"}, 2, "", needsFile},
        {{"--strict", "--verify", "-vf", "prog.hex"}, 2, "", "needs an update, which -v is none\n"},
        {{"--strict", "-P", "0"}, 2, "", badPort},
        {{"--strict", "-P", "65536"}, 2, "", badPort},
        {{"--strict", "-P", " 80"}, 2, "", badPort},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words).substr(0, 60));
        Unit unit;
        unit.Write("cwd/prog.hex", HexText(FirmwareOf("V1", 0x800), 16, "\r\n"));

        Process& program = unit.Run(row.words);

        EXPECT_EQ(program.Wait(), row.status);
        EXPECT_EQ(program.Output(), row.output);
        const std::string error = program.Error();
        const std::string end = row.error + (row.status == 2 ? kUsageLine : "");
        EXPECT_EQ(error.substr(error.size() - std::min(error.size(), end.size())), end);
        EXPECT_EQ(unit.Journal(), "exit descriptors=0\n");
        EXPECT_EQ(unit.Log() + unit.Log(kUpdateLog), "");
    }
}

TEST(Strict, ChangesNoByteOfFlashForDamagedFile)
{
    const std::string image = FirmwareOf("V1", 0x3000);
    const std::string good = HexText(image, 32, "\r\n");
    const std::string end = ":00000001FF\r\n";
    const std::size_t line = good.find(":20040000");
    std::string checksum = good;
    checksum.replace(line + 9, 2, "55");
    std::string lost = good;
    lost.erase(line, good.find('\n', line) + 1 - line);
    const struct {
        std::string file;  // empty: there is none
        std::string error;
    } rows[] = {
        {"", "prog.hex: No such file or directory\n"},
        {Cut(good, end, ""), "prog.hex:385: no end record (type 1): the board waits for more\n"},
        {Cut(good, "\r\n:00000001FF", "\r\n:00000001FF"),
         "prog.hex:386: the last line has no line end, so the unit does not load it; the file may "
         "be cut off\n"},
        {checksum, "prog.hex:34: wrong checksum\n"},
        {lost, "prog.hex:34: a gap of 32 bytes from 90040400, which no address record (type 4) "
               "introduces: a line may be lost\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        Unit unit;
        if (!row.file.empty())
            unit.Write("cwd/prog.hex", row.file);
        Process& piano = unit.StartPiano();

        for (const char* words : {"--strict -f prog.hex", "--strict -v -f prog.hex"}) {
            Process& program = unit.Run(Split(words));
            EXPECT_EQ(program.Wait(), 1);
            EXPECT_EQ(program.Error(), "diag_server: " + row.error);
        }
        EXPECT_EQ(LogTexts(unit, kUpdateLog), row.error + row.error);
        EXPECT_EQ(unit.MidiLog(), "");
        piano.Kill(SIGTERM);
        EXPECT_TRUE(unit.Flash(kImageStart, image.size()) == std::string(image.size(), '\xFF'));
    }
}

TEST(Strict, UpdatesWithReasonAndStatus)
{
    constexpr char kPatcher[] = "/home/i2c_server_sock";
    const struct {
        const char* piano;
        const char* fault;
        const char* removed;
        int status;
        std::string error;
        bool writes;
    } rows[] = {
        {"", "", "none", 0, "", true},
        {"--fail 2", "", "none", 1, "", false},
        {"", "", "usr/local/lib/diag", 1, std::string(kLock) + ": No such file or directory",
         false},
        {"", "write:1:ENOSPC", "none", 1, std::string(kLock) + ": No space left on device", false},
        {"--no-patcher", "", "none", 1, std::string(kPatcher) + ": No such file or directory",
         false},
        {"", "write:2:EPIPE", "none", 1, std::string(kPatcher) + ": the MIDI Patcher hangs up",
         false},
        {"--die-after 1", "", "none", 1, "", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.piano) + row.fault + row.removed);
        Unit unit;
        const std::string image = FirmwareOf("V1", 0x3000);
        unit.Write("cwd/prog.hex", HexText(image, 32, "\r\n"));
        unit.Remove(row.removed);
        unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);
        unit.StartPiano(Split(row.piano));

        Process& program = unit.Run({"--strict", "-f", "prog.hex"});

        EXPECT_EQ(program.Wait(), row.status);
        EXPECT_EQ(program.Error(), row.error.empty() ? "" : "diag_server: " + row.error + "\n");
        EXPECT_EQ(unit.Flash(kImageStart, image.size()) == image, row.writes);
        const bool isEarly = row.error.find(": No s") != std::string::npos;
        EXPECT_EQ(Count(unit.Journal(), "ioctl") == 0, isEarly);
    }
}

TEST(Strict, LeavesRenameToUser)
{
    const struct {
        const char* version;
        const char* error;
    } rows[] = {
        {"V 1", "diag_server: prog.hex: keeps its name, since V1.hex exists\n"},
        {"", "diag_server: prog.hex: keeps its name, since it has no version text\n"},
    };
    for (const auto& row : rows) {
        Unit unit;
        unit.Write("cwd/prog.hex", HexText(FirmwareOf(row.version, 0x3000), 32, "\r\n"));
        unit.Write("cwd/V1.hex", "older");
        unit.StartPiano();

        Process& program = unit.Run({"--strict", "-b", "-f", "prog.hex"});

        EXPECT_EQ(program.Wait(), 0);
        EXPECT_EQ(program.Error(), row.error);
        EXPECT_EQ(unit.Read("cwd/V1.hex"), "older");
        EXPECT_TRUE(unit.Exists("cwd/prog.hex"));
    }
}

TEST(Strict, ReplacesParameterFileByCompleteOneOnly)
{
    const std::string unsaved = "csp_param.hex: the read-back is not saved: ";
    const struct {
        const char* piano;
        const char* fault;
        std::string error;
    } rows[] = {
        {"", "", ""},
        {"--read-stop 90050000", "",
         unsaved + "csp_param.hex.new: not all of the parameter flash, and no more\n"},
        {"", "fwrite:6:ENOSPC",
         unsaved + "csp_param.hex.new:222: the last line has no line end, so the "
                   "unit does not load it; the file may be cut off\n"},
        {"", "rename:1:EACCES", unsaved + "Permission denied\n"},
        {"", "open:9:ENOENT", unsaved + "csp_param.hex.new: No such file or directory\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.piano) + row.fault);
        Unit unit;
        unit.Write("cwd/csp_param.hex", "old");
        unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);
        unit.StartPiano(Split(row.piano));

        Process& server = unit.Run({"--strict", "-P", OwnPort()});

        EXPECT_EQ(server.Wait(), row.error.empty() ? 0 : 1);
        EXPECT_EQ(server.Error(), row.error.empty() ? "" : "diag_server: " + row.error);
        EXPECT_EQ(unit.Read("cwd/csp_param.hex").size() > 1000000, row.error.empty());
        EXPECT_EQ(unit.Read("cwd/csp_param.hex") == "old", !row.error.empty());
        EXPECT_FALSE(unit.Exists("cwd/csp_param.hex.new"));
        const std::string log = LogTexts(unit);
        EXPECT_EQ(log.substr(log.find("CSP Read")),
                  "CSP Read Success.\n" + row.error + "Rebooting CSP...5sec\n");
    }
}

TEST(Strict, StartsOnceAndRefusesDamagedFileAndUsedPort)
{
    const std::string image = HexText(FirmwareOf("V1", 0x3000), 32, "\r\n");
    ServerWithPiano scene({"--strict", "-P", OwnPort()});
    const std::string holder = std::to_string(scene.server.Id());
    scene.unit.Mount("usb");
    scene.unit.Write("medium/csp_prog.hex", image.substr(0, image.size() - 13));

    Process& second = scene.unit.Run({"--strict", "-P", OwnPort()});
    scene.Ask(kFindUpdate, "V1\n");
    scene.Ask(kUpdate, "Cannot Execute CSP Update.\n");
    scene.unit.Write("medium/csp_prog.hex", image);
    scene.Ask(kFindUpdate, "V1\n");
    scene.Ask(kUpdate, "CSP Update Success.\n");

    EXPECT_EQ(second.Wait(), 1);
    EXPECT_EQ(second.Error(), std::string("diag_server: ") + kLock + ": process " + holder +
                                  " is at work already\n");
    EXPECT_EQ(scene.server.Error(), "diag_server: /mnt/usb/csp_prog.hex:385: no end record (type "
                                    "1): the board waits for more\n");
    scene.server.Kill();
    const Port taken;
    Process& third = scene.unit.Run({"--strict", "-P", std::to_string(taken.Number())});
    EXPECT_EQ(third.Wait(), 1);
    EXPECT_EQ(third.Error(),
              "diag_server: port " + std::to_string(taken.Number()) + ": Address already in use\n");
}
