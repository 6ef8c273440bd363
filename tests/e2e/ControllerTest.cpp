// The controller's tool against the server, as its user and a script see it.

#include <gtest/gtest.h>

#include "Scene.h"

TEST(ControllerTool, ShowsAnswersAndEndsWithStatus)
{
    ServerWithPiano scene;
    const std::string port = std::to_string(scene.unit.Port());
    const auto run = [&](Unit::Words words, int status) {
        words.insert(words.begin(), {"--port", port});
        Process& tool = scene.unit.Start("simcontroller", words);
        EXPECT_EQ(tool.Wait(), status) << tool.Error();
        EXPECT_EQ(tool.Error().empty(), status == 0) << tool.Error();
        return tool.Output();
    };

    EXPECT_EQ(run({"send", "DF", "DF", "DF", "DF"}, 0), kServiceText);
    EXPECT_EQ(run({"--json", "update"}, 1),
              "{\"line\":\"Cannot Execute CSP Update.\"}\n"
              "{\"status\":1,\"reason\":\"Cannot Execute CSP Update.\"}\n");
    EXPECT_EQ(run({"versions"}, 2), "");
    scene.SetFaults("--join --read-stop 90042000");
    const std::string shown = run({"read"}, 0);
    EXPECT_NE(shown.find("CSP Read Success.\nRebooting CSP...\n"), std::string::npos) << shown;
    EXPECT_EQ(scene.server.Wait(), 0);
    EXPECT_EQ(run({"version"}, 3), "");
}
