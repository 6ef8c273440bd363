// The controller's tool, against a unit that says what the test wants.

#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Unit.h"

namespace {

// Takes one controller, waits for the bytes of a command, answers, and hangs up if it is told to.
class OneAnswer {
public:
    OneAnswer(std::size_t expected, const std::string& answer, bool hangsUp)
        : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = {};
        socklen_t size = sizeof(address);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* general = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(listener, general, size), 0);
        EXPECT_EQ(listen(listener, 1), 0);
        EXPECT_EQ(getsockname(listener, general, &size), 0);
        port = std::to_string(ntohs(address.sin_port));
        thread = std::thread([this, expected, answer, hangsUp] {
            const int tool = accept(listener, nullptr, nullptr);
            if (tool < 0)
                return;
            char byte = 0;
            while (received.size() < expected && read(tool, &byte, 1) > 0)
                received += byte;
            EXPECT_EQ(send(tool, answer.data(), answer.size(), MSG_NOSIGNAL),
                      static_cast<ssize_t>(answer.size()));
            while (!hangsUp && read(tool, &byte, 1) > 0)
                received += byte;
            close(tool);
        });
    }
    ~OneAnswer()
    {
        shutdown(listener, SHUT_RDWR);  // ends an accept that nobody came for
        Received();
        close(listener);
    }
    // Everything that came, once the tool has gone.
    std::string Received()
    {
        if (thread.joinable())
            thread.join();
        return received;
    }
    std::string port;

private:
    int listener;
    std::string received;
    std::thread thread;
};

}  // namespace

TEST(ControllerTool, ShowsTheUnitsAnswerAndEndsWithAStatusForScripts)
{
    constexpr char kJob[] = "Connecting to CSP\nSending Data 40%\nCSP Update Failed.\n"
                            "Rebooting CSP...\n";
    const struct {
        Unit::Words words;
        const char* group;
        const char* answer;
        bool hangsUp;
        int status;
        const char* output;
        const char* error;
    } rows[] = {
        {{"version"}, "DF DF DF DF", "1.00\n", false, 0, "1.00\n", ""},
        {{"version", "on"}, "DF DF DF E0", "", false, 0, "", ""},
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
        {{"update"}, "DF DF 00 BB", kJob, false, 1, kJob, "simcontroller: CSP Update Failed.\n"},
        {{"--json", "update"},
         "DF DF 00 BB",
         "Connecting to CSP\r\nSending Data 40%\nCSP Update Success.\nRebooting CSP...\n",
         false,
         0,
         "{\"line\":\"Connecting to CSP\"}\n{\"line\":\"Sending Data 40%\",\"percent\":40}\n"
         "{\"line\":\"CSP Update Success.\"}\n{\"line\":\"Rebooting CSP...\"}\n"
         "{\"status\":0,\"reason\":\"\"}\n",
         ""},
        {{"backup"}, "DF DF 00 C3", "Reading CSP 4%\n", false, 4, "Reading CSP 4%\n", "busy"},
        {{"restore"}, "DF DF 00 C4", "Copying CSP", true, 3, "Copying CSP\n", "closed"},
        {{"--timeout", "0.1", "read"}, "DF DF 00 C0", "", false, 4, "", "no answer"},
        {{"--timeout", "0.1", "send", "90 3C 4000"}, "90 3C 40 00", "ok\n", false, 0, "ok\n", ""},
        {{"monitor"},
         "",
         "CSP Read Failed.\nhello\n",
         true,
         1,
         "CSP Read Failed.\nhello\n",
         "Failed"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        Unit unit;
        const std::string group = Bytes(row.group);
        OneAnswer answer(group.size(), row.answer, row.hangsUp);
        Unit::Words words{"--port", answer.port};
        words.insert(words.end(), row.words.begin(), row.words.end());

        Process& tool = unit.Start("simcontroller", words);

        EXPECT_EQ(tool.Wait(), row.status);
        EXPECT_EQ(tool.Output(), row.output);
        EXPECT_NE(tool.Error().find(row.error), std::string::npos) << tool.Error();
        EXPECT_EQ(tool.Error().empty(), *row.error == '\0') << tool.Error();
        EXPECT_EQ(answer.Received(), group);
    }
}

TEST(ControllerTool, TellsAWrongUseAndAUnitThatIsNotThere)
{
    const std::string nobody = OneAnswer(0, "", true).port;
    const struct {
        Unit::Words words;
        int status;
        const char* error;
    } rows[] = {
        {{"--port", nobody, "version"}, 3, "refused"},
        {{"backup", "now"}, 2, "no such command: backup now"},
        {{}, 2, "no command"},
        {{"send", "90 3"}, 2, "two hex digits each"},
        {{"--port", "65536", "version"}, 2, "no port: 65536"},
        {{"--timeout", "-1", "version"}, 2, "no time in seconds: -1"},
        {{"--timeout"}, 2, "requires an argument"},
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
