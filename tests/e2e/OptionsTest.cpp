// The command line, and the start of both modes with their peers present, late and absent.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

TEST(CommandLine, MayEndProgramBeforeLinksOpen)
{
    const std::string usage = "diag_server [-P Port] [-b] [-v] [-f filename]\n";
    const std::string version = "Diag Server Ver.0.26\n";
    const std::string fileVersion = version + "CSP File Version: V1.02 a\n";
    const std::string noFile = "need a file\n";
    const std::string noPort = "the port is not a number from 1 to 65535\n";
    const std::string noAddress = "--listen needs an IPv4 address\n";
    const std::string readme = ReadFile(DIAG_SOURCE "/README.md");
    const std::string help = readme.substr(readme.find("diag_server [-P PORT]"));
    const std::string longest(255, 'x');
    const std::string newLog = std::string(50, '\n') + "CSP Updater Start Now.\n";
    struct Row {
        std::string words;
        std::string output;
        std::string error = {};
        int status = 0;
        std::string log = std::string(60, '\n');  // of updates, as it was
    };
    std::vector<Row> rows = {
        {"-v -f prog.hex -h", "", usage},
        {"-a x" + longest + " -v", "", "diag_server: file name is too long\n"},
        {"-v -f " + longest, version},
        {"-a prog.hex -v", fileVersion},
        {"--help", help.substr(0, help.find("```"))},
        {"--version -x", version},
        {"--strict -vf prog.hex", fileVersion},
        {"--strict -h -x", "", usage},
        {"-vf prog.hex --strict", fileVersion, "diag_server: invalid option -- 't'\n"},
        {"-x -vf prog.hex", fileVersion, "diag_server: invalid option -- 'x'\n"},
        {"-f none.hex", "No Update File!\nDelete Midicom\n", "", 0, newLog},
        {"-f long.hex", "No Update File!\nDelete Midicom\n", "", 0, newLog},
    };
    const std::pair<std::string, std::string> mistakes[] = {
        {"-x -f prog.hex", "option -- 'x'\n"},
        {"-x -h", "option -- 'x'\n"},
        {"prog.hex", "not an option: prog.hex\n"},
        {"-f", "requires an argument -- 'f'\n"},
        {"-f ''", "the file name is empty\n"},
        {"-f x" + longest, "file name is too long\n"},
        {"-P 1 -P 65535 -v", noFile},
        {"--verify", noFile},
        {"--verify -x", "diag_server: invalid option -- 'x'\n"},
        {"-P 0", noPort},
        {"-P 65536", noPort},
        {"-P 80x", noPort},
        {"-P 000080", noPort},
        {"--listen", noAddress},
        {"--verify --listen 127.1 -P 80", noAddress},
        {"--listen 224.0.0.1", noAddress},
        {"--listen 127.0.0.1 -f prog.hex",
         "can't be used with a file: an update serves no controller\n"},
    };
    for (const auto& [words, error] : mistakes)
        rows.push_back({"--strict " + words, "", error + usage, 2});
    for (const Row& row : rows) {
        SCOPED_TRACE(row.words.substr(0, 40));
        Unit unit;
        unit.Write("cwd/prog.hex", SmallFile("V1.02 a"));
        unit.Write("cwd/long.hex", SmallFile("V3") + std::string(80, '0') + "\n");
        unit.Write(kUpdateLog, Row().log);

        Process& program = unit.Run(Split(row.words));

        EXPECT_EQ(program.Wait(), row.status);
        EXPECT_EQ(EndOf(program.Output(), row.output), row.output);
        EXPECT_EQ(EndOf(program.Error(), row.error), row.error);
        EXPECT_EQ(unit.Journal(), "exit descriptors=0\n");
        EXPECT_EQ(unit.LogTexts() + unit.LogTexts(kUpdateLog), row.log);
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
    const std::tuple<std::string, std::string, const char*> rows[] = {
        {"", kServer, kReader},
        {"-v -f '' -P 0", kServer, kReader},
        {"-c -f 1.hex", kFirst, kPiano},
        {"-f 1.hex -c", kFirst, kOther},
        {"-a 1.hex -b", kFirst, kPiano},
        {"-f 1.hex -a 2.hex", kSecond, kOther},
        {"-f 1.hex -a ''", kFirst, kOther},
    };
    for (const auto& [words, entries, start] : rows) {
        SCOPED_TRACE(words);
        Unit unit;
        unit.Write("cwd/1.hex", SmallFile("V1"));
        unit.Write("cwd/2.hex", SmallFile("V2"));
        MidiPeer patcher(unit.Path(kMidiPatcherSocket));

        unit.Start("diag_server", Split(words));

        ASSERT_TRUE(patcher.Accept());
        EXPECT_TRUE(WaitUntil([&] { return patcher.Received().size() >= 14; }));
        EXPECT_EQ(ToHex(patcher.Received().substr(0, 14)), start);
        const std::string log = unit.LogTexts() + unit.LogTexts(kUpdateLog);
        EXPECT_EQ(log.substr(0, entries.size()), entries);
        const auto found = Count(unit.Journal(), "listen(tcp 4917)") + Count(log, "Port Open");
        EXPECT_EQ(found > 0, words.empty()) << "the port, if it is free";
    }
}

TEST(ServerStart, LogsPeersInOrderAndRequiresMidiPatcher)
{
    const std::string start = "Diag Server Start Now.\n";
    const std::string found = start + "MIDI Patcher is active.\n";
    const std::string none = start + "MIDI Patcher is not active.\nRC Server is active.\n";
    const struct {
        std::string faults;  // of a call and of the piano
        std::size_t retries;
        std::string log;
        const char* output = "";
        bool hasPort = true;
        std::string removed = "none";
    } rows[] = {
        {"--rc-late 4", 1, found + "RC Server is active.\nDiag Server Initialize OK\n"},
        {"--no-rc", 2,
         found + "RC Server is not active.\nZaurus Socket Port Open Error\n"
                 "Diag Server Initialize OK\n",
         "", false},
        {"listen@tcp:EADDRINUSE ", 1, found + "RC Server is active.\nDiag Server Initialize OK\n",
         "listen client error\n"},
        {"", 0, "", "", true, kLogFolder},
        {"--no-patcher", 0, none, "MIDI Patcher is not active.\n"},
        {"write@i2c_server_sock:EPIPE ", 0, none, "MIDI Patcher is not connected\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.faults + row.removed);
        Scene scene(row.faults);
        const Port taken;
        scene.Remove(row.removed);
        scene.StartWithPiano({"-P", row.hasPort ? "0" : std::to_string(taken.Number())},
                             {"--silent"});

        if (row.log == none)
            EXPECT_EQ(scene.AwaitEnd(*scene.server), 0);
        else
            EXPECT_TRUE(scene.WaitFor("sim/midi.log", "> console STATUS"));
        EXPECT_TRUE(Contains(scene.server->Output(), row.output)) << scene.server->Output();
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
    EXPECT_EQ(unit.Run(StrictWords()).Error(),
              "diag_server: /home/i2c_server_sock: Connection timed out\n");
}
