// The controller's tool with the server, as its user and a script see it.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

struct ToolScene : Scene {
    Process& StartTool(const std::string& words)
    {
        return Start("diagctl", Split("--port " + std::to_string(Port()) + " " + words));
    }
    static bool HasShown(const Process& tool, const std::string& text, std::size_t times = 1)
    {
        return WaitUntil([&] { return Count(tool.Output(), text) >= times; });
    }
    // A tool that has requested a read-back or an update, which runs.
    Process& StartWork(const std::string& words)
    {
        Process& tool = StartTool(words);
        EXPECT_TRUE(HasShown(tool, "Connecting"));
        return tool;
    }
    // `error` begins the tool's standard error. Returns its output.
    static std::string ExpectEnd(Process& tool, int status, const std::string& error = "")
    {
        EXPECT_EQ(tool.Wait(), status) << tool.Error();
        EXPECT_EQ(tool.Error().substr(0, error.size()), error);
        return tool.Output();
    }
};

}  // namespace

TEST(ControllerTool, ShowsAnswersAndEndsWithStatus)
{
    const struct {
        const char* faults;  // of the piano from now on; empty: as before
        const char* words;
        int status;
        std::string output;      // its end
        std::string error = {};  // likewise
    } rows[] = {
        {"", "version", 0, "1.00\n"},
        {"", "send DFDFDFDF", 0, kServiceText},
        {"", "version on", 0, ""},
        {"", "send DFDF DFDF", 0, "1.00\n"},
        {"", "version off", 0, ""},
        {"", "send DFDFDFDF", 0, kServiceText},
        {"", "--json update", 1, "check the file with \\\"diagctl check\\\"\"}\n", "Update.\n"},
        {"--silent", "--timeout 2 read", 4, "CSP\n", "the unit has fallen silent\n"},
        {"", "version", 4, "", "(monitor shows it)\n"},
        {"", "--timeout 100 monitor", 1, "CSP...\n", "CSP Read Failed.\n"},
        {"--join", "find-update --quiet", 0, "V7\n"},
        {"", "--json update", 0, "\"status\":0,\"text\":\"\"}\n"},
        {"", "upgrade --expect V8 --yes", 1, "expected:            V8\n",
         "another version than expected; nothing was changed\n"},
        {"", "upgrade --dry-run --json", 0, "\"version\":\"V7\",\"text\":\"\"}\n"},
        {"", "upgrade", 2, "found on the medium: V7\n", "--yes is needed; nothing was changed\n"},
        {"", "upgrade --expect V7 --yes", 0, "updated to V7 and restarted.\n"},
        {"", "find-parameters --json", 1, "the server\"}\n", "Parameter File is not exsit.\n"},
        {"", "backup", 1, "HD -> FD\nParameter file is not exists.\n", "not exists.\n"},
        {"", "restore", 0, "FD -> HD\nCopy Success.\n"},
        {"", "find-parameters --quiet", 0, ")\n"},
        {"", "update-parameters", 0, "CSP Update Success.\nRebooting CSP...\n"},
        {"", "backup --quiet", 0, ""},
        {"--join --read-stop 90042000", "read", 0, "Success.\nRebooting CSP...\n"},
        {"", "version", 3, "", "serves a controller that came later\n"},
        {"", "version", 3, "", "(is the server running?)\n"},
    };
    ToolScene scene;
    scene.OpenWithPiano();
    scene.Mount("usb");
    scene.Write("medium/csp_prog.rlg", PackedText(Firmware(0x4000, "V7")));
    scene.Write("medium/csp_param.rlg", PackedText(Firmware(0x4000)));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words);
        if (*row.faults != '\0')
            scene.SetFaults(row.faults);
        Process& tool = scene.StartTool(row.words);

        EXPECT_EQ(tool.Wait(), row.status);
        EXPECT_EQ(EndOf(tool.Output(), row.output), row.output);
        // What is known about a text of the unit follows it in two lines.
        const std::string error = tool.Error().substr(0, tool.Error().find("  Cause: "));
        EXPECT_EQ(EndOf(error, row.error), row.error);
    }
    scene.SetOutput("/dev/full");
    EXPECT_EQ(scene.StartTool("--help").Wait(), 1);
}

TEST(ControllerTool, WaitsForBusyUnitAndReportsLostOne)
{
    std::signal(SIGINT, SIG_DFL);  // which a script's background job ignores
    ToolScene scene;
    scene.OpenWithPiano();
    scene.Mount("usb");
    scene.Write("medium/csp_prog.rlg", PackedText(Firmware(0x4000, "V7")));
    const Words commands = {"version", "version on",      "version off",       "find-update",
                            "update",  "find-parameters", "update-parameters", "read",
                            "backup",  "restore"};
    scene.StartTool("find-update").Wait();
    scene.SetFaults("--silent");
    Process& updater = scene.StartWork("update");

    const std::string busy = "diagctl: the unit is busy (connecting)\n";
    for (const std::string& command : commands)
        scene.ExpectEnd(scene.StartTool(command), 4, busy);
    scene.ExpectEnd(updater, 3);
    const std::string lost = updater.Error();
    EXPECT_TRUE(Contains(lost, "has closed the connection")) << lost;
    scene.ExpectEnd(scene.StartTool("send DFDFDFDF"), 0, busy);

    // A line end is no part of the release line.
    scene.Write("etc/KVT-release", "1.00");
    Process& patient = scene.StartTool("version --wait 90 --timeout 100");
    EXPECT_EQ(scene.ExpectEnd(patient, 0, busy), "1.00\n");
    scene.Remove("etc/KVT-release");
    scene.ExpectEnd(scene.StartTool("version"), 1, "diagctl: the unit has no release line\n");

    Process& reader = scene.StartWork("read");
    reader.Kill(SIGINT);
    scene.ExpectEnd(reader, 128 + SIGINT, "diagctl: the unit continues with the read-back\n");

    Process& monitor = scene.StartTool("monitor");
    EXPECT_TRUE(scene.HasShown(monitor, "Rebooting"));
    Process& second = scene.StartTool("read --wait 300");
    scene.ExpectEnd(monitor, 3, lost);
    EXPECT_TRUE(scene.HasShown(second, "Connecting"));
    Process& waiting = scene.StartTool("version --wait 300");
    EXPECT_EQ(second.Wait(), 3) << "the unit had taken the command";
    scene.server->Kill(SIGKILL);
    const auto end = UnitTime();
    EXPECT_TRUE(WaitUntil([&] { return UnitTime() > end + std::chrono::seconds(1); }));
    EXPECT_EQ(waiting.Kill(SIGINT), 128 + SIGINT) << "between two attempts";

    for (const std::string& command : commands)
        scene.ExpectEnd(scene.StartTool(command), 3);
}

TEST(ControllerTool, ShowsLineAfterBytesWithoutLineEnd)
{
    const std::string longest = "\x61" + std::string(8186, 'x') + "\x37" + "12345";  // 8193 bytes
    ToolScene scene;
    scene.OpenWithPeers();
    Process& monitor = scene.StartTool("monitor");
    EXPECT_TRUE(scene.controller->WaitForClose());
    for (std::size_t messages = 1; messages <= 2; ++messages) {
        for (std::size_t i = 0; i < messages; ++i)
            scene.SayBytes(longest);
        scene.Pass(std::chrono::seconds(2));
        scene.Say(Frames({"line"}));
        EXPECT_TRUE(scene.HasShown(monitor, "\nline\n", messages));
    }
}

TEST(ControllerTool, SaysWhyTheServerOfAHealthyPianoHasEnded)
{
    ToolScene scene;
    scene.OpenWithPiano();
    scene.SetFaults("--join --read-stop 90042000");
    scene.StartWork("read");
    Process& second = scene.StartTool("find-update --wait 300");
    scene.ExpectEnd(second, 5);
    EXPECT_TRUE(Contains(second.Error(), "diag_server -f FILE")) << second.Error();
}

TEST(ControllerTool, ShowsWhatAStrictUnitAdds)
{
    const std::string note = "/mnt/usb/csp_prog.rlg: not verified, since there is no "
                             "/mnt/usb/csp_prog.sum\n";
    ToolScene scene;
    scene.OpenWithPiano(StrictWords());
    const auto expect = [&](const char* words, int status, const std::string& error) {
        return scene.ExpectEnd(scene.StartTool(words), status, error);
    };
    expect("backup", 1, "diagctl: Floppy in not inserted. /mnt/");
    expect("update", 1, "diagctl: Cannot Execute CSP Update. no search has found a file\n");
    scene.Mount("usb");
    scene.Write("medium/csp_prog.rlg", PackedText(Firmware(0x4000, "V7")));
    EXPECT_EQ(EndOf(expect("find-update", 0, ""), note), note);
    expect("upgrade --dry-run", 0, "diagctl: " + note);

    scene.Write("medium/csp_prog.sum", "1 2 csp_prog.rlg\n");
    expect("upgrade --yes", 1,
           "diagctl: Update File is not exsit. /mnt/usb/csp_prog.rlg: damaged, since "
           "/mnt/usb/csp_prog.sum doesn't match\n");
    scene.Remove("medium/csp_prog.rlg");
    scene.Write("medium/csp_prog.hex", HexText(Firmware(0x4000), 16, "\n").substr(0, 3000));
    expect("upgrade --yes", 1, "diagctl: the unit reports about this file: /mnt/usb/csp_prog");
}

TEST(ControllerTool, LeavesIgnoredSignalsIgnored)
{
    ToolScene scene;
    scene.OpenWithPeers();
    std::signal(SIGINT, SIG_IGN);
    Process& monitor = scene.StartTool("monitor");
    std::signal(SIGINT, SIG_DFL);
    EXPECT_TRUE(scene.controller->WaitForClose());
    kill(monitor.Id(), SIGINT);
    scene.Say(Frames({"still here"}));
    EXPECT_TRUE(scene.HasShown(monitor, "still here"));
}
