// The controller's tool, against a unit that says what the test wants.

#include <gtest/gtest.h>

#include "Unit.h"

TEST(ControllerTool, PrintsAnswerAndExitsWithStatusForScripts)
{
    const struct {
        Unit::Words words;
        const char* group;
        const char* answer;
        bool hangsUp;
        int status;
        const char* output;
        const char* error;
    } rows[] = {
        {{"find-update"},
         "DF DF 00 AA",
         " \n[ System version: Update File ]\nV1\\x%s\x80\n",
         false,
         0,
         " \n[ System version: Update File ]\nV1\\\\x%s\\x80\n",
         ""},
        {{"find-parameters"},
         "DF DF 00 C1",
         "Parameter File is not exsit.\n",
         false,
         1,
         "Parameter File is not exsit.\n",
         "simcontroller: Parameter File is not exsit.\n"},
        {{"--json", "update"},
         "DF DF 00 BB",
         "Connecting to CSP\r\nSending Data 40%\nCSP Update Success.\nRebooting CSP...\n",
         false,
         0,
         "{\"line\":\"Connecting to CSP\"}\n{\"line\":\"Sending Data 40%\",\"percent\":40}\n"
         "{\"line\":\"CSP Update Success.\"}\n{\"line\":\"Rebooting CSP...\"}\n"
         "{\"status\":0,\"reason\":\"\"}\n",
         ""},
        {{"restore"}, "DF DF 00 C4", "Copying CSP", true, 3, "Copying CSP\n", "closed"},
        {{"--timeout", "0.1", "read"}, "DF DF 00 C0", "", false, 4, "", "no answer"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        Unit unit;
        const std::string group = Bytes(row.group);
        Port port;
        Unit::Words words{"--port", std::to_string(port.Number())};
        words.insert(words.end(), row.words.begin(), row.words.end());

        Process& tool = unit.Start("simcontroller", words);
        ASSERT_TRUE(port.Accept());
        ASSERT_TRUE(port.WaitFor(group));
        ASSERT_TRUE(port.Send(row.answer));
        EXPECT_TRUE(row.hangsUp || port.WaitForClose());
        port.Close();

        EXPECT_EQ(tool.Wait(), row.status);
        EXPECT_EQ(tool.Output(), row.output);
        EXPECT_NE(tool.Error().find(row.error), std::string::npos) << tool.Error();
        EXPECT_EQ(tool.Error().empty(), *row.error == '\0') << tool.Error();
        EXPECT_EQ(port.Received(), group);
    }
}

TEST(ControllerTool, ReportsWrongUseAndMissingUnit)
{
    const std::string nobody = std::to_string(Port().Number());
    const struct {
        Unit::Words words;
        int status;
        const char* error;
    } rows[] = {
        {{"--port", nobody, "version"}, 3, "refused"},
        {{"send", "90 3"}, 2, "two hex digits each"},
        {{"--port", "65536", "version"}, 2, "no port: 65536"},
        {{"help"}, 0, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        Unit unit;

        Process& tool = unit.Start("simcontroller", row.words);

        EXPECT_EQ(tool.Wait(), row.status);
        EXPECT_NE(tool.Error().find(row.error), std::string::npos) << tool.Error();
        EXPECT_EQ(tool.Error().empty(), *row.error == '\0') << tool.Error();
        EXPECT_EQ(tool.Output().find("Exit status:") != std::string::npos, row.status == 0);
    }
}
