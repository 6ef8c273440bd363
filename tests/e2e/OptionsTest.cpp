// The command line, and the start of both modes with their peers present, late and absent.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

std::string SmallFile(const std::string& version)
{
    return HexText(Firmware(0x800, version), 16, "\r\n");
}

}  // namespace

TEST(CommandLine, PrintsUsageOrVersionWithoutOpeningLinks)
{
    constexpr char kUsage[] = "diag_server [-P Port] [-b] [-v] [-f filename]\n";
    constexpr char kFileVersion[] = "Diag Server Ver.0.26\nCSP File Version: V1.02 a\n";
    const std::string longest(255, 'x');
    const struct {
        std::string words;
        std::string output;
        std::string error = {};
    } rows[] = {
        {"-v -f prog.hex -h", "", kUsage},
        {"-a x" + longest + " -v", "", "diag_server: file name is too long\n"},
        {"-v -f " + longest, "Diag Server Ver.0.26\n"},
        {"-a prog.hex -v", kFileVersion},
        {"--help", "  --version   print the program's version, and end\n"},
        {"--version -x", "Diag Server Ver.0.26\n"},
        {"--strict -vf prog.hex", kFileVersion},
        {"--strict -h -x", "", kUsage},
        {"-vf prog.hex --strict", kFileVersion, "diag_server: invalid option -- 't'\n"},
        {"-x -vf prog.hex", kFileVersion, "diag_server: invalid option -- 'x'\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words.substr(0, 40));
        Unit unit;
        unit.Write("cwd/prog.hex", SmallFile("V1.02 a"));

        Process& program = unit.Run(Split(row.words));

        EXPECT_EQ(program.Wait(), 0);
        EXPECT_EQ(EndOf(program.Output(), row.output), row.output);
        EXPECT_EQ(EndOf(program.Error(), row.error), row.error);
        EXPECT_EQ(unit.Journal(), "exit descriptors=0\n");
        EXPECT_EQ(unit.Log() + unit.Log(kUpdateLog), "");
    }
}

TEST(CommandLine, ChoosesModeAndPeer)
{
    constexpr char kServer[] = "Diag Server Start Now.\n";
    constexpr char kFirst[] = "CSP Updater Start Now.\nCSP File Version: V1\n";
    constexpr char kSecond[] = "CSP Updater Start Now.\nCSP File Version: V2\n";
    // The connect sequence, then the first group that enters flash mode.
    constexpr char kReader[] = "FE E1 E2 E0 E1 06 C0 7F BF 00 00 00 FE FF";
    constexpr char kPiano[] = "FE E1 E2 E0 E1 06 C0 00 BF 00 7F 00 FE FF";
    constexpr char kOther[] = "FE E5 E2 E0 E5 06 C0 00 BF 00 7F 00 FE FF";
    const struct {
        std::string words;
        std::string log;
        const char* start;  // the first bytes on the MIDI Patcher's socket
    } rows[] = {
        {"", kServer, kReader},          {"-v -f '' -P 0", kServer, kReader},
        {"-c -f 1.hex", kFirst, kPiano}, {"-f 1.hex -c", kFirst, kOther},
        {"-a 1.hex -b", kFirst, kPiano}, {"-f 1.hex -a 2.hex", kSecond, kOther},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words);
        Unit unit;
        unit.Write("cwd/1.hex", SmallFile("V1"));
        unit.Write("cwd/2.hex", SmallFile("V2"));
        MidiPeer patcher(unit.Path(kMidiPatcherSocket));

        unit.Start("diag_server", Split(row.words));

        ASSERT_TRUE(patcher.Accept());
        EXPECT_TRUE(WaitUntil([&] { return patcher.Received().size() >= 14; }));
        EXPECT_EQ(ToHex(patcher.Received().substr(0, 14)), row.start);
        const std::string log = unit.LogTexts() + unit.LogTexts(kUpdateLog);
        EXPECT_EQ(log.substr(0, row.log.size()), row.log);
        const auto found = Count(unit.Journal(), "listen(tcp 4917)") + Count(log, "Port Open");
        EXPECT_EQ(found > 0, row.words.empty()) << "the port, if it is free";
    }
}

TEST(ServerStart, LogsPeersInOrderAndRequiresMidiPatcher)
{
    const std::string start = "Diag Server Start Now.\n";
    const std::string found = start + "MIDI Patcher is active.\n";
    const std::string none = start + "MIDI Patcher is not active.\nRC Server is active.\n";
    const struct {
        const char* piano;
        std::size_t retries;
        std::string log;
        const char* output = "";  // its end; empty: the server runs on
        std::string removed = "none";
        const char* fault = "";
        bool hasPort = true;
    } rows[] = {
        {"--rc-late 4", 1, found + "RC Server is active.\nDiag Server Initialize OK\n"},
        {"--no-rc", 2,
         found + "RC Server is not active.\nZaurus Socket Port Open Error\n"
                 "Diag Server Initialize OK\n",
         "", "none", "", false},
        {"", 0, "", "", kLogFolder},
        {"--no-patcher", 0, none, "MIDI Patcher is not active.\n"},
        {"", 0, none, "MIDI Patcher is not connected\n", "none", "write@i2c_server_sock:EPIPE"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.piano + row.removed + row.fault);
        Scene scene(row.fault);
        const Port taken;
        scene.Remove(row.removed);
        scene.StartWithPiano({"-P", row.hasPort ? "0" : std::to_string(taken.Number())},
                             Split(std::string("--silent ") + row.piano));

        if (*row.output == '\0') {
            EXPECT_TRUE(scene.WaitFor("sim/midi.log", "> console STATUS"));
        } else {
            EXPECT_EQ(scene.AwaitEnd(*scene.server), 0);
            EXPECT_TRUE(Contains(scene.server->Output(), row.output)) << scene.server->Output();
        }
        EXPECT_EQ(Count(scene.Journal(), "sleep(2)\n"), 1U);
        EXPECT_EQ(Count(scene.Journal(), "sleep(5)\n"), row.retries);
        EXPECT_EQ(scene.LogTexts(), row.log);
    }
}

TEST(ServerStart, TakesPeersThatDoNotAcceptForAbsentOnes)
{
    Unit unit;
    Neighbour patcher(unit.Path(kMidiPatcherSocket));
    Neighbour rcServer(unit.Path(kRCServerSocket));
    patcher.FillQueue();
    rcServer.FillQueue();
    const auto before = UnitTime();

    EXPECT_EQ(unit.AwaitEnd(unit.Run(kAnyPort)), 0);

    EXPECT_EQ(unit.LogTexts(), "Diag Server Start Now.\nMIDI Patcher is not active.\n"
                               "RC Server is not active.\n");
    EXPECT_EQ(UnitTime() - before, std::chrono::seconds(5 + 2 + 5 + 5 + 5)) << "3 times, 2 waits";
}

TEST(UpdateStart, FailsWithoutLoadableFile)
{
    for (const char* name : {"none.hex", "long.hex"}) {
        SCOPED_TRACE(name);
        Unit unit;
        unit.Write("cwd/long.hex", SmallFile("V3") + std::string(80, '0') + "\n");
        unit.Write(kUpdateLog, std::string(60, '\n'));
        unit.StartPiano();

        Process& program = unit.Run({"-f", name});

        EXPECT_EQ(program.Wait(), 0);
        EXPECT_TRUE(Contains(program.Output(), "No Update File!\n"));
        EXPECT_EQ(unit.LogTexts(kUpdateLog), std::string(50, '\n') + "CSP Updater Start Now.\n");
        EXPECT_EQ(unit.Journal(), "exit descriptors=0\n");
    }
}
