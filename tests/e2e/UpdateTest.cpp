// The stand-alone update against a piano with all its habits and faults, with files of every kind.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"
#include "UniqueFd.h"

namespace {

constexpr char kVersionText[] = "V2.10-7";
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

// ---- the piano's habits and faults

struct UpdateRow {
    const char* name;
    Unit::Words piano;
    const char* log;  // between the set-up and the restart at the end
};

class UpdateRun : public testing::TestWithParam<UpdateRow> {};

TEST_P(UpdateRun, SucceedsOrReportsReasonAndAlwaysRestartsPiano)
{
    const UpdateRow& row = GetParam();
    const std::string log = row.log;
    const bool succeeds = log.find("Finished") != std::string::npos;
    Unit unit;
    const std::string firmware = FirmwareOf(kVersionText, 0x14000);
    unit.Write("cwd/prog.hex", HexText(firmware, 32, "\r\n"));
    unit.StartPiano(row.piano);

    Process& program = unit.Run({"-f", "prog.hex"});

    EXPECT_TRUE(EndsClean(unit, program));
    EXPECT_EQ(MainLog(unit), log);
    EXPECT_EQ(unit.Journal(), "ioctl(/dev/PciDsp, 33, 0xc01) = 0\nusleep(500000)\n"
                              "ioctl(/dev/PciDsp, 33, 0xc00) = 0\nsleep(5)\n"
                              "ioctl(/dev/PciDsp, 33, 0xc01) = 0\nexit descriptors=0\n");
    if (succeeds) {
        EXPECT_TRUE(unit.Flash(kImageStart, firmware.size()) == firmware);
    } else {
        const std::string reason = log.substr(log.rfind('\n', log.size() - 2) + 1);
        EXPECT_NE(program.Output().find(reason), std::string::npos);
    }
    EXPECT_TRUE(Events(unit, "bad").empty()) << Events(unit, "bad")[0];
}

INSTANTIATE_TEST_SUITE_P(
    Of, UpdateRun,
    testing::Values(
        UpdateRow{"AGoodPiano", {}, kFinished},
        UpdateRow{"APianoThatNeverSaysThatItIsIdle", {"--no-status"}, kFinished},
        UpdateRow{"SeveralRefusedBlocks",
                  {"--ng-at", "90040000", "--ng-at", "90042000", "--ng-at", "90050000", "--ng-at",
                   "90053FFF"},
                  kFinished},
        UpdateRow{"OneFailure",
                  {"--fail", "1"},
                  "Start CSP Update\nCSP Update Failed\nStart CSP Update\nCSP Update Finished\n"},
        UpdateRow{"TwoFailures",
                  {"--fail", "2"},
                  "Start CSP Update\nCSP Update Failed\nStart CSP Update\nCSP Update Failed\n"},
        UpdateRow{"FramesCutInTheMiddle", {"--frame-bytes", "4", "--keep-pairs"}, kFinished},
        UpdateRow{"MessagesJoined", {"--join", "--garbage", "40"}, kFinished},
        UpdateRow{"ASilentPiano", {"--silent"}, "Piano is not connected 2\n"},
        UpdateRow{"SilenceInTheTransfer",
                  {"--silent-after", "300"},
                  "Start CSP Update\nPiano is no reply\n"},
        UpdateRow{"UnwantedLinesWithoutEnd", {"--garbage-endless"}, "Piano Comunication Error !\n"},
        UpdateRow{"APatcherThatDiesAtOnce", {"--die-after", "1"}, "Piano is not connected 2\n"},
        UpdateRow{
            "ADroppedLink", {"--cut-link-after", "3000"}, "Start CSP Update\nPiano is no reply\n"}),
    [](const auto& row) { return row.param.name; });

// Closed from the start, its number would go to the first link, and the piano would get the texts.
// Closed half way, it would end the program by a signal.
TEST(Update, SucceedsWithoutStandardOutput)
{
    for (const bool fromTheStart : {true, false}) {
        SCOPED_TRACE(fromTheStart);
        Unit unit;
        const std::string firmware = FirmwareOf(kVersionText, 0x4000);
        unit.Write("cwd/prog.hex", HexText(firmware, 32, "\r\n"));
        unit.StartPiano();
        const std::string pipe = unit.Path("sim/output");
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        UniqueFd reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
        unit.SetOutput(fromTheStart ? "" : pipe);

        Process& program = unit.Start("diag_server", {"-f", "prog.hex"});
        EXPECT_TRUE(unit.WaitFor("sim/midi.log", "> console WRITE"));
        close(reader.Release());

        EXPECT_TRUE(EndsClean(unit, program));
        EXPECT_EQ(MainLog(unit), kFinished);
        EXPECT_TRUE(unit.Flash(kImageStart, firmware.size()) == firmware);
        EXPECT_TRUE(Events(unit, "bad").empty()) << Events(unit, "bad")[0];
    }
}

// ---- files

TEST(UpdateFile, EndsWithTextForNonImageAndWritesNothingElse)
{
    constexpr char kNoFile[] = "No Update File!\n";
    constexpr char kNoReply[] = "Piano is no reply\n";
    const std::string firmware = FirmwareOf("V1", 0x3000);
    const std::string image = HexText(firmware, 16, "\n");
    struct Row {
        const char* name;
        std::string bytes;
        const char* text;
        std::uint32_t written = 0;  // bytes of the image that reach the flash all the same
    };
    for (const Row& row :
         {Row{"missing", "", kNoFile},
          {"binary", Firmware(0x4000), kNoFile},
          {"an overlong line", image + std::string(80, '0') + "\n", kNoFile},
          {"empty", "", kNoReply},
          {"truncated", image.substr(0, image.find(":10200000")), kNoReply, 0x2000},
          {"text", std::string(3000, '\n') + "no record %s%n\n", kNoReply}}) {
        SCOPED_TRACE(row.name);
        Unit unit;
        if (row.name != std::string("missing"))
            unit.Write("cwd/prog.hex", row.bytes);
        Process& piano = unit.StartPiano();

        Process& program = unit.Run({"-f", "prog.hex"});

        EXPECT_TRUE(EndsClean(unit, program));
        EXPECT_NE(program.Output().find(row.text), std::string::npos);
        piano.Kill(SIGTERM);
        EXPECT_EQ(unit.Flash(kImageStart, row.written), firmware.substr(0, row.written));
        EXPECT_EQ(unit.Flash(kImageStart + row.written, 16), std::string(16, '\xFF'));
        if (row.text == kNoFile) {
            EXPECT_EQ(LogTexts(unit, kUpdateLog), "CSP Updater Start Now.\n");
            EXPECT_EQ(unit.Journal(), "exit descriptors=0\n");
        }
    }
}

TEST(UpdateFile, IsRenamedByItsVersion)
{
    constexpr char kRenamed[] = "Start CSP Update\nCSP Update Finished\nUpdate File Renamed\n";
    constexpr char kNotRenamed[] =
        "Start CSP Update\nCSP Update Finished\nUpdate File Rename Error\n";
    struct Row {
        Unit::Words words;
        const char* version;
        const char* name;  // the file's last one
        const char* log;
        const char* fault = "";
    };
    for (const Row& row :
         {Row{{"-b", "-f", "prog.hex"}, "V1.02 a", "cwd/V102a.hex", kRenamed},
          {{"-a", "prog.hex", "-c"}, "../../x/y\\z", "cwd/xyz.hex", kRenamed},
          {{"-c", "-f", "./prog.hex"}, "", "cwd/.hex", kRenamed},
          {{"-b", "-f", "../mnt/usb/prog.hex"}, "V9", "mnt/usb/V9.hex", kRenamed},
          {{"-f", "prog.hex"}, "V9", "cwd/prog.hex", kFinished},
          {{"-b", "-f", "prog.hex"}, "V1", "cwd/prog.hex", kNotRenamed, "rename:1:EACCES"}}) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        Unit unit;
        const std::string firmware = FirmwareOf(row.version, 0x800);
        const std::string file = HexText(firmware, 16, "\r\n");
        unit.Write("cwd/prog.hex", file);
        unit.Write("mnt/usb/prog.hex", file);
        unit.Write("mnt/usb/V9.hex", "older");
        unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);
        unit.StartPiano();

        Process& program = unit.Run(row.words);

        EXPECT_TRUE(EndsClean(unit, program));
        EXPECT_EQ(MainLog(unit), row.log);
        EXPECT_TRUE(unit.Read(row.name) == file);
        EXPECT_EQ(unit.Flash(kImageStart, firmware.size()), firmware);
    }
}
