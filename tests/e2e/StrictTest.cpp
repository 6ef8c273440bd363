// The careful mode: what it refuses before a link is opened, and what it compares at the end.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kUsageLine[] = "diag_server [-P Port] [-b] [-v] [-f filename]\n";

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
