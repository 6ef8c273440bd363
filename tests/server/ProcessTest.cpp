// Operations of the server that no step of its loop reaches, or whose result the loop ignores. This
// program is built without access control, so it can give the server its links.

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Bytes.h"
#include "Log.h"
#include "Patcher.h"
#include "Peer.h"
#include "TDiagServer.h"
#include "TempDir.h"
#include "UniqueFd.h"

// The logs of the machine that the test runs on are not its own.
static std::string logged;

bool AddLogFile(const char* /*path*/, const char* text)
{
    logged += text;
    return true;
}

bool ResetLogFile(const char* /*path*/, int /*linesToKeep*/)
{
    return true;
}

namespace {

constexpr int kBufferSize = 8194;

// A server with its two links, as far as these operations need it.
class ServerTest : public testing::Test {
protected:
    ServerTest() : patcher(files.Path("patcher"))
    {
        server.zaurus = new TZaurusCom;
        server.midi = new TMidiCom;
        server.midi->Set_connecttype(225);
        server.midi->SetMidiDescriptor(files.Path("patcher").c_str());
        EXPECT_TRUE(patcher.Accept());
        server.zaurus->SetZaurusId(controller.Other());
    }

    TempDir files;
    TDiagServer server;
    Patcher patcher;
    Peer controller;
};

// A file in the place of a standard stream.
class Replaced {
public:
    Replaced(int standard, const std::string& path, int mode)
        : stream(standard), kept(fcntl(standard, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
    {
        const UniqueFd file(open(path.c_str(), mode | O_CLOEXEC));
        std::fflush(stdout);
        dup2(file.Get(), stream);
    }
    ~Replaced()
    {
        std::fflush(stdout);
        dup2(kept.Get(), stream);
    }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

private:
    int stream;
    UniqueFd kept;
};

}  // namespace

TEST_F(ServerTest, TakesCommandsFromTheKeyboard)
{
    const std::string tooLong(kBufferSize, 'x');
    const std::string group = "E2 E0 E1 06 C0 00 BF ";
    struct Row {
        std::string typed;
        std::vector<std::string> groups;
        std::vector<std::string> lines;
        std::string text;
        int mode = O_RDONLY;
    };
    for (const Row& row : {Row{"v\n", {"00 7F 00", "51 00 00"}, {"STATUS"}, "v"},
                           {"f\n", {"00 7F 00", "66 01 00"}, {}, "f"},
                           {"read %s\nv\n", {}, {"READ   :901A0000:901F0000:10"}, "read %s"},
                           {"n", {}, {"NEXT   :"}, "n"},
                           {"c\n", {}, {"CANCEL :"}, "c"},
                           {"s\n", {}, {"RESTART:"}, "s"},
                           {"V\n", {}, {}, "V"},
                           {"\nv\n", {}, {}, ""},
                           {"", {}, {}, ""},
                           {"v\n", {}, {}, "", O_WRONLY},
                           {tooLong, {}, {}, tooLong.substr(1)}}) {
        SCOPED_TRACE(row.typed.substr(0, 10));
        const std::size_t told = controller.Received().size();
        const std::size_t lines = patcher.Lines().size();
        const std::size_t frames = patcher.Frames().size();
        char buffer[kBufferSize];
        {
            const Replaced input(STDIN_FILENO, files.Write("typed", row.typed), row.mode);
            const Replaced output(STDOUT_FILENO, files.Write("printed", ""), O_WRONLY);
            server.ProcessKeyboard(buffer);
        }

        EXPECT_EQ(files.Read("printed"), "KEYBOARD: " + row.text + "\n");
        EXPECT_EQ(controller.Received().substr(told), row.text);
        const std::vector<std::string> all = patcher.Lines();
        EXPECT_EQ(
            std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(lines), all.end()),
            row.lines);
        std::size_t at = frames;
        for (const std::string& rest : row.groups)
            EXPECT_EQ(ToHex(patcher.Frames()[at++]), group + rest);
        EXPECT_EQ(patcher.Frames().size() - at == 0, row.lines.empty());
    }
}

TEST_F(ServerTest, TellsWhetherAReleaseFileCouldBeOpened)
{
    EXPECT_FALSE(server.SendIOVersion(files.Path("missing").c_str()));
    EXPECT_TRUE(server.SendIOVersion(files.Write("empty", "").c_str()));
    EXPECT_EQ(controller.Received() + logged, "");
    EXPECT_TRUE(server.SendIOVersion(files.Write("release", "1.00\n").c_str()));
    EXPECT_EQ(controller.Received(), "1.00\n");
    EXPECT_EQ(logged, "1.00\n");
}
