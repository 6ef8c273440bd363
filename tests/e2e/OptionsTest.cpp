// The command line, and the start of both modes with their peers present, late and absent.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

std::string SmallFile(const std::string& version)
{
    return HexText(FirmwareOf(version, 0x800), 16, "\r\n");
}

}  // namespace

TEST(CommandLine, PrintsUsageOrVersionWithoutOpeningLinks)
{
    constexpr char kFileVersion[] = "Diag Server Ver.0.26\nCSP File Version: V1.02 a\n";
    const std::string longest(255, 'x');
    const struct {
        Unit::Words words;
        std::string output;
        std::string error;
    } rows[] = {
        {{"-v", "-f", "prog.hex", "-h"}, "", "diag_server [-P Port] [-b] [-v] [-f filename]\n"},
        {{"-a", longest + "x", "-v"}, "", "diag_server: file name is too long\n"},
        {{"-v", "-f", longest}, "Diag Server Ver.0.26\n", ""},
        {{"-a", "prog.hex", "-v"}, kFileVersion, ""},
        {{"--help"}, "  --version   print the program's version, and end\n", ""},
        {{"--version", "-x"}, "Diag Server Ver.0.26\n", ""},
        {{"--strict", "-vf", "prog.hex"}, kFileVersion, ""},
        {{"--strict", "-h", "-x"}, "", "diag_server [-P Port] [-b] [-v] [-f filename]\n"},
        {{"-vf", "prog.hex", "--strict"}, kFileVersion, "diag_server: invalid option -- 't'\n"},
        {{"-x", "-vf", "prog.hex"}, kFileVersion, "diag_server: invalid option -- 'x'\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words).substr(0, 40));
        Unit unit;
        unit.Write("cwd/prog.hex", SmallFile("V1.02 a"));

        Process& program = unit.Run(row.words);

        ExpectCleanEnd(unit, program);
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
        Unit::Words words;
        const char* log;
        const char* start;  // the first bytes on the MIDI Patcher's socket
    } rows[] = {
        {{}, kServer, kReader},
        {{"-v", "-f", "", "-P", "0"}, kServer, kReader},
        {{"-c", "-f", "1.hex"}, kFirst, kPiano},
        {{"-f", "1.hex", "-c"}, kFirst, kOther},
        {{"-a", "1.hex", "-b"}, kFirst, kPiano},
        {{"-f", "1.hex", "-a", "2.hex"}, kSecond, kOther},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        Unit unit;
        unit.Write("cwd/1.hex", SmallFile("V1"));
        unit.Write("cwd/2.hex", SmallFile("V2"));
        MidiPeer patcher(unit.Path(kMidiPatcherSocket));

        unit.Start("diag_server", row.words);

        ASSERT_TRUE(patcher.Accept());
        EXPECT_TRUE(WaitUntil([&] { return patcher.Received().size() >= 14; }));
        EXPECT_EQ(ToHex(patcher.Received().substr(0, 14)), row.start);
        const std::string log = LogTexts(unit, row.log == kServer ? kServerLog : kUpdateLog);
        EXPECT_EQ(log.substr(0, std::string(row.log).size()), row.log);
        const auto found = Count(unit.Journal(), "listen(tcp 4917)") + Count(log, "Port Open");
        EXPECT_EQ(found > 0, row.words.empty()) << "the port, if it is free";
    }
}

TEST(ServerStart, LogsPeersInOrderAndRequiresMidiPatcher)
{
    constexpr char kNoPatcher[] =
        "Diag Server Start Now.\nMIDI Patcher is not active.\nRC Server is active.\n";
    const struct {
        const char* piano;
        bool hasPort;
        const char* removed;
        const char* fault;
        std::size_t retries;
        const char* output;  // its end; empty: the server runs on
        const char* log;
    } rows[] = {
        {"--rc-late 4", true, "none", "", 1, "",
         "Diag Server Start Now.\nMIDI Patcher is active.\nRC Server is active.\n"
         "Diag Server Initialize OK\n"},
        {"--no-rc", false, "none", "", 2, "",
         "Diag Server Start Now.\nMIDI Patcher is active.\nRC Server is not active.\n"
         "Zaurus Socket Port Open Error\nDiag Server Initialize OK\n"},
        {"", true, kLogFolder.c_str(), "", 0, "", ""},
        {"--no-patcher", true, "none", "", 0, "MIDI Patcher is not active.\n", kNoPatcher},
        {"", true, "none", "write@i2c_server_sock:EPIPE", 0, "MIDI Patcher is not connected\n",
         kNoPatcher},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.piano) + row.removed + row.fault);
        Unit unit;
        const Port taken;
        unit.Remove(row.removed);
        unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);
        unit.StartPiano(Split(std::string("--silent ") + row.piano));

        Process& server =
            unit.StartServer({"-P", row.hasPort ? "0" : std::to_string(taken.Number())});

        const std::string output = row.output;
        if (output.empty()) {
            EXPECT_TRUE(unit.WaitFor("sim/midi.log", "> console STATUS"));
        } else {
            ExpectCleanEnd(unit, server);
            EXPECT_NE(server.Output().find(output), std::string::npos) << server.Output();
        }
        EXPECT_EQ(Count(unit.Journal(), "sleep(2)\n"), 1U);
        EXPECT_EQ(Count(unit.Journal(), "sleep(5)\n"), row.retries);
        EXPECT_EQ(LogTexts(unit), row.log);
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

    ExpectCleanEnd(unit, unit.StartServer());

    EXPECT_EQ(LogTexts(unit), "Diag Server Start Now.\nMIDI Patcher is not active.\n"
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

        ExpectCleanEnd(unit, program);
        EXPECT_NE(program.Output().find("No Update File!\n"), std::string::npos);
        EXPECT_EQ(LogTexts(unit, kUpdateLog), std::string(50, '\n') + "CSP Updater Start Now.\n");
        EXPECT_EQ(unit.Journal(), "exit descriptors=0\n");
    }
}
