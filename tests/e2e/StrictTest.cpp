// The strict mode: what it refuses before a link is opened, and what it compares at the end.

#include <filesystem>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kUsageLine[] = "diag_server [-P Port] [-b] [-v] [-f filename]\n";
constexpr char kFirstLine[] = ":20040000";  // begins the second line of the image
constexpr char kEnd[] = ":00000001FF\r\n";

const std::string kImage = FirmwareOf("V1", 0x3000);

// The firmware file with the line that begins so replaced.
std::string FileWith(const std::string& line, const std::string& replacement)
{
    std::string text = HexText(kImage, 32, "\r\n");
    const std::size_t at = text.find(line);
    return text.replace(at, text.find('\n', at) + 1 - at, replacement);
}
const std::string kGood = FileWith(kEnd, kEnd);

struct Row {
    std::string words;
    std::string error;         // the end of standard error
    std::string file = kGood;  // prog.hex
    const char* fault = "";    // of one call
    const char* piano = "";    // its options
};

// A unit with prog.hex in which the program has ended.
struct StrictRun {
    explicit StrictRun(const Row& row) : piano(unit.StartPiano(Split(row.piano)))
    {
        unit.Write("cwd/prog.hex", row.file);
        if (*row.fault != '\0')
            unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);
        Process& program = unit.Run(Split("--strict " + row.words));
        status = program.Wait();
        EXPECT_EQ(EndOf(program.Error(), row.error), row.error);
    }

    bool HasOpenedLinks() const { return Count(unit.Journal(), "ioctl") > 0; }
    std::string Logs() const { return unit.Log() + unit.Log(kUpdateLog); }
    bool HasWritten()
    {
        piano.Kill(SIGTERM);
        return unit.Flash(kImageStart, kImage.size()) == kImage;
    }

    Unit unit;
    Process& piano;
    int status = -1;
};

}  // namespace

TEST(StrictCommandLine, RefusesMistakes)
{
    const std::string noFile = "need a file\n";
    const std::string noPort = "the port is not a number from 1 to 65535\n";
    const std::string noAddress = "--listen needs an IPv4 address\n";
    const Row rows[] = {
        {"-x -f prog.hex", "option -- 'x'\n"},
        {"-x -h", "option -- 'x'\n"},
        {"prog.hex", "not an option: prog.hex\n"},
        {"-f", "requires an argument -- 'f'\n"},
        {"-f ''", "the file name is empty\n"},
        {"-f " + std::string(256, 'x'), "file name is too long\n"},
        {"-P 1 -P 65535 -v", noFile},
        {"--verify", noFile},
        {"--verify -x", "diag_server: invalid option -- 'x'\n"},
        {"-P 0", noPort},
        {"-P 65536", noPort},
        {"-P 80x", noPort},
        {"-P 000080", noPort},
        {"--listen", noAddress},
        {"--verify --listen 127.1 -P 80", noAddress},
        {"--listen -P 4917", noAddress},
        {"--listen 127.0.0.1 -f prog.hex",
         "can't be used with a file, for which nothing listens\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.words);
        StrictRun run({row.words, row.error + kUsageLine});
        EXPECT_EQ(run.status, 2);
        EXPECT_TRUE(run.Logs().empty() && !run.HasOpenedLinks());
    }
}

TEST(StrictStart, RefusesWhatWouldFailLater)
{
    const Port taken;
    const std::string port = std::to_string(taken.Number());
    const std::string update = "-f prog.hex";
    const std::string lock = kLogFolder + "/diag_server.lock: ";
    const std::string noSocket = "/home/i2c_server_sock: No such file or directory\n";
    const std::string outside =
        Record(4, 0, "\x27\x91") + "\r\n" + Record(0, 0, "data") + "\r\n" + kGood;
    const Row rows[] = {
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
        {update, "prog.hex: File too large\n", TooLargeFile('\n')},
        {update, kLogFolder + "/cspupdate.log: Read-only file system\n", kGood,
         "open@cspupdate.log:EROFS"},
        {update, lock + "Read-only file system\n", kGood, "open@diag_server.lock:EROFS"},
        {update, lock + "No space left on device\n", kGood, "write@diag_server.lock:ENOSPC"},
        {update, noSocket, kGood, "", "--no-patcher"},
        {"", noSocket, kGood, "", "--no-patcher"},
        {"-P " + port, "port " + port + ": Address already in use\n"},
        {"--listen 203.0.113.1", "port 4917 at 203.0.113.1: Cannot assign requested address\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        StrictRun run(row);
        EXPECT_EQ(run.status, 1);
        EXPECT_FALSE(run.HasOpenedLinks());
        EXPECT_NE(run.Logs().find(row.error), std::string::npos);
    }
    // Nobody has described the flash of the other peer, and -v writes nothing.
    StrictRun warned({"-v -a prog.hex",
                      "prog.hex:2: data at 27910000, outside the flash "
                      "(90000000 to 90FFFFFF)\n",
                      outside});
    EXPECT_EQ(warned.status, 0);
}

TEST(StrictUpdate, EndsWithStatusAndReason)
{
    const std::string update = "-f prog.hex";
    const std::string keeps = "prog.hex: keeps its name, since ";
    const std::string noVersion =
        FileWith(kFirstLine, Record(0, 0x400, ". ." + std::string(29, '\0')) + "\r\n");
    const struct {
        Row row;
        int status;
        bool isWritten;
    } rows[] = {
        {{update, ""}, 0, true},
        {{"-b " + update, keeps + "it has no version text\n", noVersion}, 0, false},
        {{"-b " + update, keeps + "the rename has failed\n", kGood, "rename@V1.hex:EROFS"},
         0,
         true},
        {{update, "the MIDI Patcher could not be reached before, but can be now\n", kGood,
          "write@i2c_server_sock:EPIPE"},
         1,
         false},
        {{update, "the update has failed\n", kGood, "", "--silent"}, 1, false},
        {{update, "/dev/PciDsp: Input/output error\n", kGood, "ioctl@PciDsp#2:EIO"}, 1, true},
        {{"--verify " + update, "/dev/PciDsp: Input/output error\n", kGood, "ioctl@PciDsp#4:EIO",
          "--size A1000"},
         1,
         true},
    };
    for (const auto& [row, status, isWritten] : rows) {
        SCOPED_TRACE(row.error);
        StrictRun run(row);
        EXPECT_EQ(run.status, status);
        EXPECT_EQ(run.HasWritten(), isWritten);
        EXPECT_TRUE(run.unit.Exists("cwd/prog.hex"));
        EXPECT_NE(run.Logs().find(row.error), std::string::npos);
    }
}

TEST(StrictUpdate, KeepsFileAtNewName)
{
    Unit unit;
    unit.Write("cwd/prog.hex", kGood);
    std::filesystem::create_symlink("nowhere", unit.Path("cwd/V1.hex"));
    unit.StartPiano();
    Process& program = unit.Run(Split("--strict -b -f prog.hex"));
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(program.Error(), "diag_server: prog.hex: keeps its name, since V1.hex exists\n");
    EXPECT_TRUE(std::filesystem::is_symlink(unit.Path("cwd/V1.hex")));
}

// A read-back that isn't saved has failed: the server goes on and takes commands.
TEST(StrictReadBack, ReplacesFileWholeOrReportsFailure)
{
    const std::string file = "csp_param.hex: ";
    const struct {
        std::string reason;  // empty: it succeeds
        const char* fault;
        const char* piano;
    } rows[] = {
        {"", "", ""},
        {"csp_param.hex: it doesn't cover exactly the parameter flash", "", "--read-stop 90041000"},
        {"what the CSP sent was not the next record, that of 90042000", "",
         "--bad-checksum-at 90042000"},
        {"csp_param.hex: No space left on device", "write@csp_param.hex.new:ENOSPC", ""},
        {"csp_param.hex: Input/output error", "fsync@csp_param.hex.new:EIO", ""},
        {"csp_param.hex: Read-only file system", "open@csp_param.hex.new:EROFS", ""},
        {"csp_param.hex: Permission denied", "rename@csp_param.hex:EACCES", ""},
    };
    constexpr auto kPrivate = std::filesystem::perms::owner_read;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reason);
        const bool isSaved = row.reason.empty();
        Unit unit;
        std::filesystem::permissions(unit.Write("cwd/csp_param.hex", "old"), kPrivate);
        unit.StartPiano(Split(row.piano));
        if (*row.fault != '\0')
            unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);
        Process& server = unit.Start("diag_server", {"--strict", "-P", OwnPort()});

        EXPECT_TRUE(unit.WaitForLog("Rebooting CSP...5sec\n"));
        EXPECT_TRUE(!isSaved || server.Wait() == 0);

        const std::string result = LogTexts(unit);
        EXPECT_EQ(Count(result, "CSP Read Success.\n"), isSaved ? 1U : 0U);
        EXPECT_EQ(Count(result, "CSP Read Failed.\n" + row.reason + "\n"), isSaved ? 0U : 1U);
        EXPECT_EQ(server.IsRunning(), !isSaved);
        EXPECT_EQ(unit.Read("cwd/csp_param.hex") == "old", !isSaved);
        EXPECT_EQ(std::filesystem::status(unit.Path("cwd/csp_param.hex")).permissions(), kPrivate);
        EXPECT_FALSE(unit.Exists("cwd/csp_param.hex.new"));
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
