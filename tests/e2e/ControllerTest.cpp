// The controller's tool with the server, as its user and a script see it.

#include <csignal>
#include <sstream>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

Process& StartTool(Unit& unit, Unit::Words words)
{
    words.insert(words.begin(), {"--port", std::to_string(unit.Port())});
    return unit.Start("diagctl", words);
}

Process& RunTool(Unit& unit, const Unit::Words& words)
{
    Process& tool = StartTool(unit, words);
    tool.Wait();
    return tool;
}

}  // namespace

TEST(ControllerTool, ShowsAnswersAndEndsWithStatus)
{
    const struct {
        const char* faults;  // of the piano from now on; empty: as before
        const char* words;
        int status;
        std::string output;  // its end
        std::string error;   // likewise
    } rows[] = {
        {"", "version", 0, "1.00\n", ""},
        {"", "send DFDFDFDF", 0, kServiceText, ""},
        {"", "version on", 0, "", ""},
        {"", "send DFDF DFDF", 0, "1.00\n", ""},
        {"", "version off", 0, "", ""},
        {"", "send DFDFDFDF", 0, kServiceText, ""},
        {"", "--json update", 1, "check the file with \\\"diagctl check\\\"\"}\n", "Update.\n"},
        {"--silent", "--timeout 2 read", 4, "CSP\n", "the unit has fallen silent\n"},
        {"", "version", 4, "", "(monitor shows it)\n"},
        {"", "--timeout 100 monitor", 1, "CSP...\n", "CSP Read Failed.\n"},
        {"--join", "find-update --quiet", 0, "V7\n", ""},
        {"", "--json update", 0, "\"status\":0,\"text\":\"\"}\n", ""},
        {"", "upgrade --expect V8 --yes", 1, "expected:            V8\n",
         "another version than expected; nothing was changed\n"},
        {"", "upgrade --dry-run --json", 0, "\"version\":\"V7\",\"text\":\"\"}\n", ""},
        {"", "upgrade", 2, "found on the medium: V7\n", "--yes is needed; nothing was changed\n"},
        {"", "upgrade --expect V7 --yes", 0, "updated to V7 and restarted.\n", ""},
        {"", "find-parameters --json", 1, "the server\"}\n", "Parameter File is not exsit.\n"},
        {"", "backup", 1, "HD -> FD\nParameter file is not exists.\n", "not exists.\n"},
        {"", "restore", 0, "FD -> HD\nCopy Success.\n", ""},
        {"", "find-parameters --quiet", 0, ")\n", ""},
        {"", "update-parameters", 0, "CSP Update Success.\nRebooting CSP...\n", ""},
        {"", "backup --quiet", 0, "", ""},
        {"--join --read-stop 90042000", "read", 0, "Success.\nRebooting CSP...\n", ""},
        {"", "version", 3, "", "serves a controller that came later\n"},
        {"", "version", 3, "", "(is the server running?)\n"},
    };
    ServerWithPiano scene;
    scene.unit.Mount("usb");
    scene.unit.Write("medium/csp_prog.rlg", PackedText(FirmwareOf("V7", 0x4000)));
    scene.unit.Write("medium/csp_param.rlg", PackedText(Firmware(0x4000)));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words);
        if (*row.faults != '\0')
            scene.SetFaults(row.faults);
        Process& tool = RunTool(scene.unit, Split(row.words));

        EXPECT_EQ(tool.Wait(), row.status);
        EXPECT_EQ(EndOf(tool.Output(), row.output), row.output);
        // What is known about a text of the unit follows it in two lines.
        const std::string error = tool.Error().substr(0, tool.Error().find("  Cause: "));
        EXPECT_EQ(EndOf(error, row.error), row.error);
    }
    scene.unit.SetOutput("/dev/full");
    EXPECT_EQ(RunTool(scene.unit, {"--help"}).Wait(), 1);
}

TEST(ControllerTool, WaitsForBusyUnitAndReportsLostOne)
{
    std::signal(SIGINT, SIG_DFL);  // which a script's background job ignores
    ServerWithPiano scene;
    Unit& unit = scene.unit;
    unit.Mount("usb");
    unit.Write("medium/csp_prog.rlg", PackedText(FirmwareOf("V7", 0x4000)));
    const auto hasBegun = [](const Process& tool) {
        return WaitUntil([&] { return tool.Output().find("Connecting") != std::string::npos; });
    };
    const Unit::Words commands[] = {
        {"version"}, {"version", "on"},   {"version", "off"},    {"find-update"},
        {"update"},  {"find-parameters"}, {"update-parameters"}, {"read"},
        {"backup"},  {"restore"},
    };
    RunTool(unit, {"find-update"});
    scene.SetFaults("--silent");
    Process& updater = StartTool(unit, {"update"});
    ASSERT_TRUE(hasBegun(updater));

    const std::string busy = "diagctl: the unit is busy (connecting)\n";
    for (const Unit::Words& command : commands) {
        Process& tool = RunTool(unit, command);
        EXPECT_EQ(tool.Wait(), 4);
        EXPECT_EQ(tool.Error(), busy) << command[0];
    }
    EXPECT_EQ(updater.Wait(), 3);
    EXPECT_NE(updater.Error().find("has closed the connection"), std::string::npos);
    EXPECT_EQ(RunTool(unit, {"send", "DFDFDFDF"}).Error(), busy);

    // A line end is no part of the release line.
    unit.Write("etc/KVT-release", "1.00");
    Process& patient = RunTool(unit, {"version", "--wait", "90", "--timeout", "100"});
    EXPECT_EQ(patient.Output(), "1.00\n");
    EXPECT_EQ(patient.Error(), busy);
    EXPECT_EQ(patient.Wait(), 0);
    unit.Remove("etc/KVT-release");
    EXPECT_EQ(RunTool(unit, {"version"}).Error(), "diagctl: the unit has no release line\n");

    Process& reader = StartTool(unit, {"read"});
    ASSERT_TRUE(hasBegun(reader));
    EXPECT_EQ(reader.Kill(SIGINT), 128 + SIGINT);
    EXPECT_EQ(reader.Error(), "diagctl: the unit continues with the read-back\n");

    Process& monitor = StartTool(unit, {"monitor"});
    EXPECT_TRUE(WaitUntil([&] { return Count(monitor.Output(), "Rebooting") > 0; }));
    Process& second = StartTool(unit, {"read", "--wait", "300"});
    EXPECT_EQ(monitor.Wait(), 3);
    EXPECT_EQ(monitor.Error(), updater.Error());
    ASSERT_TRUE(hasBegun(second));
    Process& waiting = StartTool(unit, {"version", "--wait", "300"});
    EXPECT_EQ(second.Wait(), 3) << "the unit had taken the command";
    scene.server.Kill(SIGKILL);
    const auto end = UnitTime();
    EXPECT_TRUE(WaitUntil([&] { return UnitTime() > end + std::chrono::seconds(1); }));
    EXPECT_EQ(waiting.Kill(SIGINT), 128 + SIGINT) << "between two attempts";

    for (const Unit::Words& command : commands)
        EXPECT_EQ(RunTool(unit, command).Wait(), 3) << command[0];
}

TEST(ControllerTool, ShowsLineAfterBytesWithoutLineEnd)
{
    const std::string longest = "\x61" + std::string(8186, 'x') + "\x37" + "12345";  // 8193 bytes
    ServerWithPeers scene;
    scene.Open();
    Process& monitor = StartTool(scene.unit, {"monitor"});
    EXPECT_TRUE(scene.controller->WaitForClose());
    for (std::size_t messages = 1; messages <= 2; ++messages) {
        for (std::size_t i = 0; i < messages; ++i)
            scene.SayBytes(longest);
        const auto said = UnitTime();
        EXPECT_TRUE(WaitUntil([&] { return UnitTime() > said + std::chrono::seconds(2); }));
        scene.Say(Frames({"line"}));
        EXPECT_TRUE(WaitUntil([&] { return Count(monitor.Output(), "\nline\n") == messages; }));
    }
}

TEST(ControllerTool, SaysWhyTheServerOfAHealthyPianoHasEnded)
{
    ServerWithPiano scene;
    scene.SetFaults("--join --read-stop 90042000");
    Process& reader = StartTool(scene.unit, {"read"});
    EXPECT_TRUE(WaitUntil([&] { return Count(reader.Output(), "Connecting") > 0; }));
    Process& second = RunTool(scene.unit, {"find-update", "--wait", "300"});
    EXPECT_EQ(second.Wait(), 5);
    EXPECT_NE(second.Error().find("diag_server -f FILE"), std::string::npos) << second.Error();
}

TEST(ControllerTool, ShowsWhatAStrictUnitAdds)
{
    ServerWithPiano scene({"--strict", "-P", OwnPort()});
    Unit& unit = scene.unit;
    const std::string packed = PackedText(FirmwareOf("V7", 0x4000));
    const std::string note = "/mnt/usb/csp_prog.rlg: not verified, since there is no "
                             "/mnt/usb/csp_prog.sum\n";
    EXPECT_EQ(RunTool(unit, {"backup"}).Error().find("diagctl: Floppy in not inserted. /mnt/"), 0U);
    EXPECT_EQ(RunTool(unit, {"update"})
                  .Error()
                  .find("diagctl: Cannot Execute CSP Update. no search has found a file\n"),
              0U);
    unit.Mount("usb");
    unit.Write("medium/csp_prog.rlg", packed);
    EXPECT_EQ(EndOf(RunTool(unit, {"find-update"}).Output(), note), note);
    EXPECT_EQ(RunTool(unit, {"upgrade", "--dry-run"}).Error(), "diagctl: " + note);

    unit.Write("medium/csp_prog.sum", "1 2 csp_prog.rlg\n");
    Process& refused = RunTool(unit, {"upgrade", "--yes"});
    EXPECT_EQ(refused.Wait(), 1);
    EXPECT_EQ(refused.Error().find("diagctl: Update File is not exsit. /mnt/usb/csp_prog.rlg: "
                                   "damaged, since /mnt/usb/csp_prog.sum doesn't match\n"),
              0U);
    unit.Remove("medium/csp_prog.rlg");
    const std::string cut = HexText(FirmwareOf("V7", 0x4000), 16, "\n").substr(0, 3000);
    unit.Write("medium/csp_prog.hex", cut);
    Process& damaged = RunTool(unit, {"upgrade", "--yes"});
    EXPECT_EQ(damaged.Wait(), 1);
    EXPECT_EQ(damaged.Error().find("diagctl: the unit reports about this file: /mnt/usb/csp_prog"),
              0U)
        << damaged.Error();
}

TEST(ControllerTool, LeavesIgnoredSignalsIgnored)
{
    ServerWithPeers scene;
    scene.Open();
    std::signal(SIGINT, SIG_IGN);
    Process& monitor = StartTool(scene.unit, {"monitor"});
    std::signal(SIGINT, SIG_DFL);
    EXPECT_TRUE(scene.controller->WaitForClose());
    kill(monitor.Id(), SIGINT);
    scene.Say(Frames({"still here"}));
    EXPECT_TRUE(WaitUntil([&] { return Count(monitor.Output(), "still here") > 0; }));
}

TEST(ControllerTool, DocumentsNameEveryCommandAndOption)
{
    const std::string manual = ReadFile(DIAG_SOURCE "/packaging/diagctl.1");
    const std::string readme = ReadFile(DIAG_SOURCE "/README.md");
    Unit unit;
    int names = 0;
    for (const char* begin : {"", "-"}) {
        Process& tool = unit.Start("diagctl", {"complete", begin});
        tool.Wait();
        std::istringstream lines(tool.Output());
        for (std::string line; std::getline(lines, line); ++names) {
            const std::string name = line.substr(0, line.find('\t'));
            const bool isOption = name[0] == '-';
            EXPECT_GT(Count(manual, isOption ? "Fl " + name.substr(1) : name), 0U) << name;
            EXPECT_TRUE(isOption || Count(readme, name) > 0) << name;
        }
    }
    EXPECT_GT(names, 25);
}
