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
std::string Road(const Unit& unit)
{
    const std::string log = LogTexts(unit, kUpdateLog);
    const std::string begin = "CSP Updater Initialize - OK\n";
    const std::string end = "Rebooting CSP...5sec\n";
    const std::size_t at = log.find(begin) + begin.size();
    EXPECT_EQ(log.substr(log.size() - end.size()), end);
    return log.substr(at, log.size() - end.size() - at);
}

// A real program, this one, with a version in its place and an erased byte in front of it.
std::string ToolFirmware()
{
    constexpr std::size_t kSize = 0x25123;
    constexpr std::size_t kVersionAt = 0x400;
    std::string bytes = ReadFile("/proc/self/exe").substr(0, kSize);
    bytes[kVersionAt - 1] = '\xFF';
    bytes.replace(kVersionAt, sizeof(kVersionText), kVersionText, sizeof(kVersionText));
    return bytes;
}

// The hole in front of the version makes it begin a record whatever the record's length.
std::string SrecCat(const char* recordSize, const char* lineEnd)
{
    return std::string("srec_cat firmware.bin -binary -offset 0x90040000 "
                       "-exclude 0x900403FF 0x90040400 -Output prog.hex -Intel "
                       "-Output_Block_Size=") +
           recordSize + " -Line_Termination=" + lineEnd;
}

}  // namespace

// ---- the piano's habits and faults

struct UpdateRow {
    const char* name;
    Unit::Words piano;
    const char* log;  // between the set-up and the restart at the end
};

class UpdateRoad : public testing::TestWithParam<UpdateRow> {};

TEST_P(UpdateRoad, ComesThroughOrTellsWhyNotAndRestartsThePianoInBothCases)
{
    const UpdateRow& row = GetParam();
    const std::string log = row.log;
    const bool succeeds = log.find("Finished") != std::string::npos;
    Unit unit;
    const std::string firmware = FirmwareOf(kVersionText, 0x14000);
    unit.Write("cwd/prog.hex", HexText(firmware, 32, "\r\n"));
    unit.StartPiano(row.piano);

    Process& program = unit.Run({"-f", "prog.hex"});

    EXPECT_TRUE(EndedClean(unit, program));
    EXPECT_EQ(Road(unit), log);
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
    Of, UpdateRoad,
    testing::Values(
        UpdateRow{"AGoodPiano", {}, kFinished},
        UpdateRow{"ATalkativePiano", {"--chatter", "20", "--garbage", "3"}, kFinished},
        UpdateRow{"APianoThatAnswersEachWrite", {"--answer-each"}, kFinished},
        UpdateRow{"APianoThatNeverSaysThatItIsIdle", {"--no-status"}, kFinished},
        UpdateRow{"OneRefusedBlock", {"--ng-at", "90044100"}, kFinished},
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
        UpdateRow{"FramesApartFromTheirEnds", {"--frame-bytes", "9"}, kFinished},
        UpdateRow{"MessagesJoined", {"--join", "--garbage", "40"}, kFinished},
        UpdateRow{"ASilentPiano", {"--silent"}, "Piano is not connected 2\n"},
        UpdateRow{"SilenceInTheTransfer",
                  {"--silent-after", "300"},
                  "Start CSP Update\nPiano is no reply\n"},
        UpdateRow{"SilenceBehindARefusal",
                  {"--ng-at", "90042020", "--silent-after", "258"},
                  "Start CSP Update\nPiano is no reply\n"},
        UpdateRow{"SilenceBehindTheEnd", {"--no-finish"}, "Start CSP Update\nPiano is no reply\n"},
        UpdateRow{"UnwantedLinesWithoutEnd", {"--garbage-endless"}, "Piano Comunication Error !\n"},
        UpdateRow{"APatcherThatDiesAtOnce", {"--die-after", "1"}, "Piano is not connected 2\n"},
        UpdateRow{
            "APatcherThatDiesAtTheRequest", {"--die-after", "7"}, "Piano is not connected 2\n"},
        UpdateRow{"APatcherThatDiesInTheTransfer",
                  {"--die-after", "3000"},
                  "Start CSP Update\nPiano is no reply\n"},
        UpdateRow{
            "ADroppedLink", {"--cut-link-after", "3000"}, "Start CSP Update\nPiano is no reply\n"}),
    [](const auto& row) { return row.param.name; });

// Closed from the start, its number would go to the first link, and the piano would get the texts.
// Closed half way, it would end the program by a signal.
TEST(Update, ComesThroughWithoutAStandardOutput)
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

        EXPECT_TRUE(EndedClean(unit, program));
        EXPECT_EQ(Road(unit), kFinished);
        EXPECT_TRUE(unit.Flash(kImageStart, firmware.size()) == firmware);
        EXPECT_TRUE(Events(unit, "bad").empty()) << Events(unit, "bad")[0];
    }
}

TEST(UpdateSilence, LastsThirtyOneSecondsInEachState)
{
    struct Row {
        Unit::Words piano;
        std::size_t silences;
        std::size_t requests;  // 0: as many as it takes until the answer has come
    };
    for (const Row& row : {Row{{"--silent"}, 2, 31},  // behind STATUS and WRITE
                           {{"--silent-after", "1", "--chatter", "0"}, 1, 0}}) {
        SCOPED_TRACE(testing::PrintToString(row.piano));
        Unit unit;
        unit.Write("cwd/prog.hex", HexText(FirmwareOf("V1", 0x800), 16, "\n"));
        unit.StartPiano(row.piano);

        Process& program = unit.Run({"-f", "prog.hex"});

        EXPECT_TRUE(EndedClean(unit, program));
        EXPECT_EQ(Count(program.Output(), "Update Counter Inc 1+ 31\n"), row.silences);
        EXPECT_EQ(program.Output().find("Update Counter Inc 1+ 32\n"), std::string::npos);
        EXPECT_EQ(Events(unit, "> console STATUS").size(), 1U);
        const std::size_t requests = Events(unit, "> console WRITE  :").size();
        EXPECT_TRUE(row.requests == 0 || requests == row.requests) << requests;
    }
}

// ---- files

struct FileRow {
    const char* name;
    std::string tool;     // writes firmware.bin, at 0x90040000, to prog.hex
    const char* option;   // names the peer
    const char* connect;  // how it shows on the wire
};

class UpdateFile : public testing::TestWithParam<FileRow> {};

TEST_P(UpdateFile, OfOtherPeoplesToolsReachesTheFlashByteForByte)
{
    const FileRow& row = GetParam();
    Unit unit;
    const std::string firmware = ToolFirmware();
    unit.Write("cwd/firmware.bin", firmware);
    ASSERT_TRUE(Shell("cd " + unit.Path("cwd") + " && " + row.tool)) << row.tool;
    unit.StartPiano({"--allow-gaps"});

    Process& program = unit.Run({row.option, "prog.hex"});

    EXPECT_TRUE(EndedClean(unit, program));
    EXPECT_EQ(Road(unit), kFinished);
    EXPECT_NE(unit.Log(kUpdateLog).find("CSP File Version: V2.10-7\n"), std::string::npos);
    EXPECT_TRUE(unit.Flash(kImageStart, firmware.size()) == firmware);
    EXPECT_EQ(Events(unit, "connect "), std::vector<std::string>{row.connect});
    EXPECT_TRUE(Events(unit, "bad").empty()) << Events(unit, "bad")[0];
}

INSTANTIATE_TEST_SUITE_P(
    By, UpdateFile,
    testing::Values(FileRow{"SrecCat12Lf", SrecCat("12", "NewLine"), "-f", "connect E1"},
                    FileRow{"SrecCat12CrLf", SrecCat("12", "CRLF"), "-a", "connect E5"},
                    FileRow{"SrecCat16Lf", SrecCat("16", "NewLine"), "-a", "connect E5"},
                    FileRow{"SrecCat32Lf", SrecCat("32", "NewLine"), "-a", "connect E5"},
                    FileRow{"SrecCat32CrLf", SrecCat("32", "CRLF"), "-f", "connect E1"},
                    FileRow{"Objcopy",
                            "objcopy -I binary -O ihex --change-addresses 0x90040000 firmware.bin "
                            "prog.hex",
                            "-a", "connect E5"}),
    [](const auto& row) { return row.param.name; });

TEST(UpdateFile, ThatIsNoImageEndsWithATextAndWritesNothingElse)
{
    constexpr char kNoFile[] = "No Update File!\n";
    constexpr char kNoReply[] = "Piano is no reply\n";
    const std::string firmware = FirmwareOf("V1", 0x3000);
    const std::string image = HexText(firmware, 16, "\n");
    std::string lying = image;
    lying.replace(lying.find('\n') + 2, 2, "FF");
    struct Row {
        const char* name;
        std::string bytes;
        const char* text;
        std::uint32_t written = 0;  // bytes of the image that reach the flash all the same
    };
    for (const Row& row :
         {Row{"missing", "", kNoFile},
          {"binary", Firmware(0x4000), kNoFile},
          {"a huge line", image + std::string(1000000, ':') + "\n", kNoFile},
          {"an overlong line", image + std::string(80, '0') + "\n", kNoFile},
          {"empty", "", kNoReply},
          {"without a line end", std::string(5000, '0'), kNoReply},
          {"truncated", image.substr(0, image.find(":10200000")), kNoReply, 0x2000},
          {"a count that lies", lying, kNoReply},
          {"text", std::string(3000, '\n') + "no record %s%n\n", kNoReply}}) {
        SCOPED_TRACE(row.name);
        Unit unit;
        if (row.name != std::string("missing"))
            unit.Write("cwd/prog.hex", row.bytes);
        Process& piano = unit.StartPiano();

        Process& program = unit.Run({"-f", "prog.hex"});

        EXPECT_TRUE(EndedClean(unit, program));
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

TEST(UpdateFile, IsRenamedByTheVersionThatItCarries)
{
    constexpr char kRenamed[] = "Start CSP Update\nCSP Update Finished\nUpdate File Renamed\n";
    struct Row {
        Unit::Words words;
        const char* version;
        const char* name;  // the file's new one
    };
    for (const Row& row : {Row{{"-b", "-f", "prog.hex"}, "V1.02 a", "cwd/V102a.hex"},
                           {{"-a", "prog.hex", "-c"}, "../../x/y\\z", "cwd/xyz.hex"},
                           {{"-c", "-f", "./prog.hex"}, "", "cwd/.hex"},
                           {{"-b", "-f", "../mnt/usb/prog.hex"}, "V9", "mnt/usb/V9.hex"},
                           {{"-f", "prog.hex"}, "V9", "cwd/prog.hex"}}) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        Unit unit;
        const std::string firmware = FirmwareOf(row.version, 0x800);
        const std::string file = HexText(firmware, 16, "\r\n");
        unit.Write("cwd/prog.hex", file);
        unit.Write("mnt/usb/prog.hex", file);
        unit.Write("mnt/usb/V9.hex", "older");
        unit.StartPiano();

        Process& program = unit.Run(row.words);

        EXPECT_TRUE(EndedClean(unit, program));
        EXPECT_EQ(Road(unit), row.words.size() > 2 ? kRenamed : kFinished);
        EXPECT_TRUE(unit.Read(row.name) == file);
        EXPECT_EQ(unit.Flash(kImageStart, firmware.size()), firmware);
    }
}

TEST(UpdateFile, KeepsItsNameWhenRenamingFails)
{
    struct Row {
        const char* fault;
        const char* path;
    };
    for (const Row& row : {Row{"rename:1:EACCES", "prog.hex"},
                           {"", "../mnt/usb/prog:"}}) {  // the colon ends a directory's name
        SCOPED_TRACE(row.path);
        Unit unit;
        const std::string file = HexText(FirmwareOf("V1", 0x800), 16, "\n");
        const std::string place = std::string("cwd/") + row.path;
        unit.Write(place, file);
        unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);
        unit.StartPiano();

        Process& program = unit.Run({"-b", "-f", row.path});

        EXPECT_TRUE(EndedClean(unit, program));
        EXPECT_EQ(Road(unit), std::string(kFinished) + "Update File Rename Error\n");
        EXPECT_EQ(unit.Read(place), file);
    }
}
