// The controller's tool against the server: each of its commands, as a user gives them.

#include <algorithm>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

TEST(Controller, GetsWhatItAsksForWithEachCommandOfTheTool)
{
    const std::string firmware = FirmwareOf("V7", 0x4000);
    const std::string parameters = Firmware(0x2000);
    OpenServer server;
    Unit& unit = server.unit;
    unit.Mount("usb");
    unit.Write("medium/csp_prog.rlg", PackedText(firmware));
    server.PutParameters(parameters);
    const auto ask = [&](Unit::Words words) -> Process& {
        const std::string port = std::to_string(unit.Port());
        words.insert(words.begin(), {"--port", port});
        Process& tool = unit.Start("diagctl", words);
        tool.Wait();
        return tool;
    };
    struct Row {
        Unit::Words words;
        const char* answer;  // the end of what is shown
        int status = 0;
    };
    for (const Row& row : {Row{{"version"}, "KVT : Update the Service Center.\n"},
                           {{"version", "on"}, ""},
                           {{"version"}, "1.00\n"},
                           {{"version", "off"}, ""},
                           {{"send", "DF", "DF", "DF", "DF"}, "Service Center.\n"},
                           {{"find-update"}, "[ System version: Update File ]\nV7\n"},
                           {{"update"}, "CSP Update Success.\nRebooting CSP...\n"},
                           {{"update"}, "Cannot Execute CSP Update.\n", 1},
                           {{"backup"}, "Copy Success.\n"},
                           {{"restore"}, "Copy Success.\n"}}) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        Process& tool = ask(row.words);

        EXPECT_EQ(tool.Wait(), row.status);
        const std::string shown = tool.Output();
        const std::size_t size = std::string(row.answer).size();
        EXPECT_EQ(shown.substr(shown.size() - std::min(size, shown.size())), row.answer);
        EXPECT_EQ(tool.Error().empty(), row.status == 0) << tool.Error();
    }
    EXPECT_TRUE(unit.Flash(kImageStart, firmware.size()) == firmware);

    EXPECT_NE(ask({"find-parameters"}).Output().find("CSP Parameter : ("), std::string::npos);
    EXPECT_EQ(ask({"update-parameters"}).Wait(), 0);
    EXPECT_TRUE(unit.Flash(kImageStart, parameters.size()) == parameters);

    server.SetFaults("--join --read-stop 90042000");
    EXPECT_EQ(ask({"read"}).Wait(), 0);
    EXPECT_EQ(server.server->Wait(), 0);
    EXPECT_EQ(ask({"version"}).Wait(), 3);
}
