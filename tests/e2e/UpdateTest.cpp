// The stand-alone update against a piano with its habits and faults, and with files of every kind.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"
#include "UniqueFd.h"

namespace {

constexpr char kFinished[] = "Start CSP Update\nCSP Update Finished\n";

// What an update logs between its set-up and its last line.
std::string MainLog(const Unit& unit)
{
    const std::string log = LogTexts(unit, kUpdateLog);
    const std::string begin = "CSP Updater Initialize - OK\n";
    const std::string end = "Rebooting CSP...5sec\n";
    const std::size_t at = log.find(begin) + begin.size();
    EXPECT_EQ(log.substr(log.size() - end.size()), end);
    return log.substr(at, log.size() - end.size() - at);
}

}  // namespace

TEST(Update, SucceedsOrReportsReasonAndAlwaysRestartsPiano)
{
    constexpr char kNoReply[] = "Start CSP Update\nPiano is no reply\n";
    const struct {
        Unit::Words piano;
        const char* log;
    } rows[] = {
        {{"--frame-bytes", "4", "--keep-pairs", "--no-status"}, kFinished},
        {{"--join", "--garbage", "40", "--ng-at", "90040000", "--ng-at", "90042000", "--ng-at",
          "90053FFF"},
         kFinished},
        {{"--fail", "1"},
         "Start CSP Update\nCSP Update Failed\nStart CSP Update\nCSP Update Finished\n"},
        {{"--fail", "2"},
         "Start CSP Update\nCSP Update Failed\nStart CSP Update\nCSP Update Failed\n"},
        {{"--garbage-endless"}, "Piano Comunication Error !\n"},
        {{"--die-after", "1"}, "Piano is not connected 2\n"},
        {{"--cut-link-after", "3000"}, kNoReply},
    };
    const std::string firmware = FirmwareOf("V2.10-7", 0x14000);
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.piano));
        Unit unit;
        unit.Write("cwd/prog.hex", HexText(firmware, 32, "\r\n"));
        unit.StartPiano(row.piano);

        Process& program = unit.Run({"-f", "prog.hex"});

        const std::string log = row.log;
        const std::string end = log.substr(log.rfind('\n', log.size() - 2) + 1);
        ExpectCleanEnd(unit, program);
        EXPECT_EQ(MainLog(unit), log);
        EXPECT_EQ(unit.Journal(), "ioctl(/dev/PciDsp, 33, 0xc01) = 0\nusleep(500000)\n"
                                  "ioctl(/dev/PciDsp, 33, 0xc00) = 0\nsleep(5)\n"
                                  "ioctl(/dev/PciDsp, 33, 0xc01) = 0\nexit descriptors=0\n");
        EXPECT_EQ(Count(unit.MidiLog(), " bad "), 0U) << unit.MidiLog();
        if (end == "CSP Update Finished\n")
            EXPECT_TRUE(unit.Flash(kImageStart, firmware.size()) == firmware);
        else
            EXPECT_NE(program.Output().find(end), std::string::npos);
    }
}

// Closed from the start, its number would go to the first link, and the piano would get the texts.
// Closed half way, it would end the program by a signal.
TEST(Update, SucceedsWithoutStandardOutput)
{
    for (const bool fromTheStart : {true, false}) {
        SCOPED_TRACE(fromTheStart);
        Unit unit;
        const std::string firmware = FirmwareOf("V1", 0x4000);
        unit.Write("cwd/prog.hex", HexText(firmware, 32, "\r\n"));
        Process& piano = unit.StartPiano();
        const std::string pipe = unit.Path("sim/output");
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        UniqueFd reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
        unit.SetOutput(fromTheStart ? "" : pipe);

        Process& program = unit.Start("diag_server", {"-f", "prog.hex"});
        EXPECT_TRUE(unit.WaitFor("sim/midi.log", "> console WRITE"));
        close(reader.Release());

        ExpectCleanEnd(unit, program);
        EXPECT_EQ(MainLog(unit), kFinished);
        EXPECT_EQ(piano.Kill(SIGTERM), 0) << piano.Error();
        EXPECT_TRUE(unit.Flash(kImageStart, firmware.size()) == firmware);
    }
}

TEST(UpdateFile, EndsWithTextForNonImageAndWritesNothingElse)
{
    const std::string firmware = FirmwareOf("V1", 0x3000);
    const std::string image = HexText(firmware, 16, "\n");
    const struct {
        const char* name;
        std::string bytes;
        const char* text;
        std::uint32_t written;  // bytes of the image that reach the flash all the same
    } rows[] = {
        {"missing", "", "No Update File!\n", 0},
        {"cwd/prog.hex", image + std::string(80, '0') + "\n", "No Update File!\n", 0},
        {"cwd/prog.hex", image.substr(0, image.find(":10200000")), "Piano is no reply\n", 0x2000},
    };
    for (const auto& row : rows) {
        Unit unit;
        unit.Write(row.name, row.bytes);
        Process& piano = unit.StartPiano();

        Process& program = unit.Run({"-f", "prog.hex"});

        ExpectCleanEnd(unit, program);
        EXPECT_NE(program.Output().find(row.text), std::string::npos) << row.text;
        piano.Kill(SIGTERM);
        EXPECT_EQ(unit.Flash(kImageStart, row.written), firmware.substr(0, row.written));
        EXPECT_EQ(unit.Flash(kImageStart + row.written, 16), std::string(16, '\xFF'));
        EXPECT_EQ(unit.Journal() == "exit descriptors=0\n", row.written == 0);
    }
}

TEST(UpdateFile, IsRenamedByItsVersion)
{
    const std::string renamed = std::string(kFinished) + "Update File Renamed\n";
    const std::string notRenamed = std::string(kFinished) + "Update File Rename Error\n";
    const struct {
        Unit::Words words;
        const char* version;
        const char* fault;
        const char* name;  // the file's last one
        std::string log;
    } rows[] = {
        {{"-a", "prog.hex", "-c"}, "../../x/y\\z 1.02", "", "cwd/xyz102.hex", renamed},
        {{"-b", "-f", "../mnt/usb/prog.hex"}, "V9", "", "mnt/usb/V9.hex", renamed},
        {{"-b", "-f", "prog.hex"}, "V1", "rename:1:EACCES", "cwd/prog.hex", notRenamed},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.version);
        Unit unit;
        const std::string file = HexText(FirmwareOf(row.version, 0x800), 16, "\r\n");
        unit.Write("cwd/prog.hex", file);
        unit.Write("mnt/usb/prog.hex", file);
        unit.Write("mnt/usb/V9.hex", "older");
        unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);
        unit.StartPiano();

        ExpectCleanEnd(unit, unit.Run(row.words));

        EXPECT_EQ(MainLog(unit), row.log);
        EXPECT_EQ(unit.Read(row.name), file);
    }
}
