// The controller's tool against the server, as its user and a script see it.

#include <gtest/gtest.h>

#include "Scene.h"

TEST(ControllerTool, ShowsAnswersAndEndsWithStatus)
{
    const struct {
        const char* faults;  // of the piano from here on; empty: as before
        Unit::Words words;
        int status;
        std::string output;  // its end
        std::string error;   // likewise
    } rows[] = {
        {"", {"version"}, 0, kServiceText, ""},
        {"", {"version", "on"}, 0, "", ""},
        {"", {"send", "DFDF", "DFDF"}, 0, "1.00\n", ""},
        {"", {"--json", "update"}, 1, "\"reason\":\"Cannot Execute CSP Update.\"}\n", "Update.\n"},
        {"", {"versions"}, 2, "", "no such command: versions\nTry: diagctl help\n"},
        {"", {"--port", "0", "version"}, 2, "", "no port: 0\nTry: diagctl help\n"},
        {"--silent", {"--timeout", "2", "read"}, 4, "CSP\n", "the unit has fallen silent\n"},
        {"", {"version"}, 4, "", "(monitor shows it)\n"},
        {"", {"--timeout", "100", "monitor"}, 1, "CSP...\n", "CSP Read Failed.\n"},
        {"--join --read-stop 90042000", {"read"}, 0, "Success.\nRebooting CSP...\n", ""},
        {"", {"version"}, 3, "", "it serves the controller that came last\n"},
        {"", {"version"}, 3, "", "(is the server running?)\n"},
    };
    ServerWithPiano scene;
    const std::string port = std::to_string(scene.unit.Port());
    const auto endOf = [](const std::string& text, const std::string& end) {
        return end.empty() ? text : text.substr(text.size() - std::min(text.size(), end.size()));
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        if (*row.faults != '\0')
            scene.SetFaults(row.faults);
        Unit::Words words = {"--port", port};
        words.insert(words.end(), row.words.begin(), row.words.end());
        Process& tool = scene.unit.Start("diagctl", words);

        EXPECT_EQ(tool.Wait(), row.status);
        EXPECT_EQ(endOf(tool.Output(), row.output), row.output);
        EXPECT_EQ(endOf(tool.Error(), row.error), row.error);
    }
}
