// The command line, and the start of both modes with their neighbours there, late and absent.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kUsage[] = "diag_server [-P Port] [-b] [-v] [-f filename]\n";
constexpr char kTooLong[] = "diag_server: file name is too long\n";
constexpr char kUpdateFinished[] = "APE Update Finished\n";
constexpr std::size_t kLongestName = 255;

std::string SmallFile(const std::string& version)
{
    return HexText(FirmwareOf(version, 0x800), 16, "\r\n");
}

}  // namespace

TEST(CommandLine, PrintsUsageOrVersionAndTouchesNoLink)
{
    constexpr char kProgram[] = "Diag Server Ver.0.26\n";
    constexpr char kFileVersion[] = "Diag Server Ver.0.26\nCSP File Version: V1.02 a\n";
    const std::string tooLong(kLongestName + 1, 'x');
    struct Row {
        Unit::Words words;
        const char* error;  // a part of it
        std::string output;
    };
    for (const Row& row :
         {Row{{"-h"}, kUsage, ""},
          {{"-v", "-f", "prog.hex", "-h"}, kUsage, ""},
          {{"-f", tooLong}, kTooLong, ""},
          {{"-a", tooLong, "-v"}, kTooLong, ""},
          {{"-v", "-f", tooLong.substr(1)}, "", kProgram},
          {{"-v", "-f", "missing.hex"}, "", kProgram},
          {{"-v", "-f", "prog.hex"}, "", kFileVersion},
          {{"-a", "prog.hex", "-v"}, "", kFileVersion},
          {{"-x", "-vf", "prog.hex"}, "'x'", kFileVersion},
          {{"-vf", "prog.hex", "-P"}, "'P'", kFileVersion},
          {{"-P", "no port", "-vf", "prog.hex"}, "", kFileVersion},
          {{"-v", "-f", "plain.hex"}, "", std::string(kProgram) + "CSP File Version: \n"}}) {
        SCOPED_TRACE(testing::PrintToString(row.words).substr(0, 40));
        Unit unit;
        unit.Write("cwd/prog.hex", SmallFile("V1.02 a"));
        unit.Write("cwd/plain.hex", HexText(std::string(0x100, 'a'), 16, "\n"));

        Process& program = unit.Run(row.words);

        EXPECT_TRUE(EndsClean(unit, program));
        EXPECT_EQ(program.Output(), row.output);
        EXPECT_NE(program.Error().find(row.error), std::string::npos) << program.Error();
        EXPECT_EQ(program.Error().empty(), *row.error == '\0') << program.Error();
        EXPECT_EQ(unit.Journal(), "exit descriptors=0\n");
        EXPECT_EQ(unit.Log() + unit.Log(kUpdateLog), "");
    }
}

TEST(CommandLine, ChoosesModeAndPeer)
{
    constexpr char kServer[] = "Diag Server Start Now.\n";
    constexpr char kPlain[] = "CSP Updater Start Now.\nCSP File Version: V1\n";
    constexpr char kSecond[] = "CSP Updater Start Now.\nCSP File Version: V2\n";
    // The connect sequence, then the first group of the way into flash mode.
    constexpr char kReader[] = "FE E1 E2 E0 E1 06 C0 7F BF 00 00 00 FE FF";
    constexpr char kPiano[] = "FE E1 E2 E0 E1 06 C0 00 BF 00 7F 00 FE FF";
    constexpr char kOther[] = "FE E5 E2 E0 E5 06 C0 00 BF 00 7F 00 FE FF";
    struct Row {
        Unit::Words words;
        const char* log;
        const char* start;  // the first bytes on the MIDI Patcher's socket
    };
    for (const Row& row : {Row{{}, kServer, kReader},
                           {{"-v"}, kServer, kReader},
                           {{"-b"}, kServer, kReader},
                           {{"-f", ""}, kServer, kReader},
                           {{"-f"}, kServer, kReader},  // without its argument
                           {{"-f", "1.hex"}, kPlain, kPiano},
                           {{"-a", "1.hex"}, kPlain, kOther},
                           {{"-c", "-f", "1.hex"}, kPlain, kPiano},
                           {{"-f", "1.hex", "-c"}, kPlain, kOther},
                           {{"-a", "1.hex", "-b"}, kPlain, kPiano},
                           {{"-f", "1.hex", "-a", "2.hex"}, kSecond, kOther},
                           {{"-a", "2.hex", "-f", ""}, kSecond, kPiano}}) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        Unit unit;
        unit.Write("cwd/1.hex", SmallFile("V1"));
        unit.Write("cwd/2.hex", SmallFile("V2"));
        Patcher patcher(unit.Path("home/i2c_server_sock"));
        const std::string log = row.log == kServer ? kServerLog : kUpdateLog;

        unit.StartServer(row.words);

        ASSERT_TRUE(patcher.Accept());
        EXPECT_TRUE(WaitUntil([&] { return patcher.Received().size() >= 14; }));
        EXPECT_EQ(ToHex(patcher.Received()).substr(0, sizeof(kPiano) - 1), row.start);
        EXPECT_EQ(LogTexts(unit, log).substr(0, std::string(row.log).size()), row.log);
    }
}

// ---- the server's start: every neighbour in every state

enum class Presence { There, Late, Absent };

struct ServerStartRow {
    const char* name;
    Presence rcServer;
    bool hasPatcher;
    bool hasPort;
    bool hasLog;  // its directory
    const char* sleeps;
    const char* log;
};

class ServerStart : public testing::TestWithParam<ServerStartRow> {};

TEST_P(ServerStart, LogsNeighboursInOrderAndGoesOnWithoutThem)
{
    const ServerStartRow& row = GetParam();
    Unit unit;
    const Port taken;
    std::unique_ptr<Patcher> patcher;
    std::unique_ptr<Neighbour> rcServer;
    if (row.hasPatcher)
        patcher = std::make_unique<Patcher>(unit.Path("home/i2c_server_sock"));
    if (row.rcServer == Presence::There)
        rcServer = std::make_unique<Neighbour>(unit.Path("tmp/rcseq_socket"));
    if (!row.hasLog)
        unit.Remove("usr/local/lib/diag");

    Process& server = unit.StartServer({"-P", row.hasPort ? "0" : std::to_string(taken.Number())});
    if (row.rcServer == Presence::Late) {
        EXPECT_TRUE(unit.WaitForJournal("sleep(5)"));
        rcServer = std::make_unique<Neighbour>(unit.Path("tmp/rcseq_socket"));
    }

    if (row.hasPatcher) {
        EXPECT_TRUE(patcher->Accept() && patcher->WaitForLine("STATUS"));
        EXPECT_TRUE(server.IsRunning());
        EXPECT_EQ(server.Kill(SIGTERM), 128 + SIGTERM);
    } else {
        EXPECT_TRUE(EndsClean(unit, server));
        EXPECT_NE(server.Output().find("MIDI Patcher is not active.\n"), std::string::npos);
    }
    EXPECT_EQ(LinesOf(unit.Journal(), "sleep"), row.sleeps);
    EXPECT_EQ(LogTexts(unit), row.log);
    EXPECT_TRUE(rcServer == nullptr || rcServer->Accept());
}

INSTANTIATE_TEST_SUITE_P(
    With, ServerStart,
    testing::Values(
        ServerStartRow{"AllThere", Presence::There, true, true, true, "sleep(2)\n",
                       "Diag Server Start Now.\nMIDI Patcher is active.\nRC Server is active.\n"
                       "Diag Server Initialize OK\n"},
        ServerStartRow{"LateRcServer", Presence::Late, true, true, true, "sleep(2)\nsleep(5)\n",
                       "Diag Server Start Now.\nMIDI Patcher is active.\nRC Server is active.\n"
                       "Diag Server Initialize OK\n"},
        ServerStartRow{"PortInUse", Presence::There, true, false, true, "sleep(2)\nsleep(5)\n",
                       "Diag Server Start Now.\nMIDI Patcher is active.\nRC Server is active.\n"
                       "Zaurus Socket Port Open Error\nDiag Server Initialize OK\n"},
        ServerStartRow{"PatcherOnly", Presence::Absent, true, false, true,
                       "sleep(2)\nsleep(5)\nsleep(5)\n",
                       "Diag Server Start Now.\nMIDI Patcher is active.\nRC Server is not active.\n"
                       "Zaurus Socket Port Open Error\nDiag Server Initialize OK\n"},
        ServerStartRow{"NoPatcher", Presence::There, false, true, true, "sleep(2)\n",
                       "Diag Server Start Now.\nMIDI Patcher is not active.\n"
                       "RC Server is active.\n"},
        ServerStartRow{"Nobody", Presence::Absent, false, false, true,
                       "sleep(2)\nsleep(5)\nsleep(5)\n",
                       "Diag Server Start Now.\nMIDI Patcher is not active.\n"
                       "RC Server is not active.\nZaurus Socket Port Open Error\n"},
        ServerStartRow{"NoLogDirectory", Presence::There, true, true, false, "sleep(2)\n", ""}),
    [](const auto& row) { return row.param.name; });

TEST(ServerStart, EndsWhenPatcherRefusesConnectSequence)
{
    Unit unit;
    const Patcher patcher(unit.Path("home/i2c_server_sock"));
    const Neighbour rcServer(unit.Path("tmp/rcseq_socket"));
    unit.Set("SIMUNIT_FAULT=write:1:EPIPE");

    Process& server = unit.StartServer();

    EXPECT_TRUE(EndsClean(unit, server));
    EXPECT_NE(server.Output().find("MIDI Patcher is not connected\n"), std::string::npos);
    EXPECT_EQ(LogTexts(unit), "Diag Server Start Now.\nMIDI Patcher is not active.\n"
                              "RC Server is active.\n");
}

// ---- the stand-alone update's start

struct UpdateStartRow {
    const char* name;
    Presence patcher;
    const char* removed;  // a file
    const char* dspError;
    const char* fault;   // of the program
    const char* log;     // from the version to the update
    const char* output;  // the end of it
};

class UpdateStart : public testing::TestWithParam<UpdateStartRow> {};

TEST_P(UpdateStart, LogsNeighboursAndUpdatesOnlyWithPatcher)
{
    const UpdateStartRow& row = GetParam();
    const bool updates = row.output == kUpdateFinished;
    Unit unit;
    const std::string firmware = FirmwareOf("V3", 0x2000);
    unit.Write("cwd/prog.hex", HexText(firmware, 32, "\n"));
    unit.Remove(row.removed);
    if (*row.dspError != '\0')
        unit.DspErrno(row.dspError);
    if (row.patcher == Presence::There)
        unit.StartPiano();
    unit.Set(std::string("SIMUNIT_FAULT=") + row.fault);

    Process& program = unit.Start("diag_server", {"-f", "prog.hex"});
    if (row.patcher == Presence::Late) {
        EXPECT_TRUE(unit.WaitForJournal("sleep(5)"));
        unit.StartPiano();
    }

    EXPECT_TRUE(EndsClean(unit, program));
    const char* updated = "CSP Updater Initialize - OK\nStart CSP Update\nCSP Update Finished\n"
                          "Rebooting CSP...5sec\n";
    EXPECT_EQ(LogTexts(unit, kUpdateLog),
              std::string("CSP Updater Start Now.\nCSP File Version: V3\n") + row.log +
                  (updates ? updated : "Update Error No.-3\n"));
    EXPECT_NE(program.Output().find(row.output), std::string::npos) << program.Output();
    EXPECT_EQ(unit.Flash(kImageStart, firmware.size()), updates ? firmware : "");
}

INSTANTIATE_TEST_SUITE_P(
    With, UpdateStart,
    testing::Values(
        UpdateStartRow{"AllThere", Presence::There, "none", "", "",
                       "Open MIDI Patcher - OK1\nOpen PciDsp - OK\n", kUpdateFinished},
        UpdateStartRow{"NoDsp", Presence::There, "dev/PciDsp", "", "",
                       "Open MIDI Patcher - OK1\nOpen PciDsp - NG\n", kUpdateFinished},
        UpdateStartRow{"FailingDsp", Presence::There, "none", "EIO", "",
                       "Open MIDI Patcher - OK1\nOpen PciDsp - NG\n", kUpdateFinished},
        UpdateStartRow{"LatePatcher", Presence::Late, "none", "", "",
                       "Open MIDI Patcher - NG1\nOpen MIDI Patcher - OK2\nOpen PciDsp - OK\n",
                       kUpdateFinished},
        UpdateStartRow{"NoPatcher", Presence::Absent, "none", "", "",
                       "Open MIDI Patcher - NG1\nOpen MIDI Patcher - NG2\nOpen PciDsp - OK\n",
                       "Open i2c error\nError:-3\n"},
        UpdateStartRow{"PatcherThatTakesNothing", Presence::There, "none", "", "write:1:EPIPE",
                       "Open MIDI Patcher - NG1\nOpen PciDsp - OK\n",
                       "Connect i2c error2\nError:-3\n"}),
    [](const auto& row) { return row.param.name; });
