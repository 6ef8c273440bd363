// Operations of the server that its loop doesn't call, or whose result it ignores.

#include <tuple>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Language.h"
#include "MidiPeer.h"
#include "OwnUnit.h"
#include "Strict.h"
#include "TDiagServer.h"
#include "UnitPaths.h"

namespace {

constexpr int kBufferSize = 8194;

class ServerTest : public testing::Test {
protected:
    ServerTest()
    {
        EXPECT_EQ(server.Initialize(0, TMidiCom::kPiano), 0);
        EXPECT_TRUE(patcher.Accept());
    }

    TempDir files;
    MidiPeer patcher{ownUnit.Path(kMidiPatcherSocket)};
    TDiagServer server;
};

}  // namespace

TEST_F(ServerTest, SendsCommandsOfKeyboard)
{
    const UniqueFd keyboard(dup(STDIN_FILENO));
    const auto type = [this](const std::string& path) {
        const UniqueFd typed(open(path.c_str(), O_RDONLY));
        dup2(typed.Get(), STDIN_FILENO);
        testing::internal::CaptureStdout();
        char buffer[kBufferSize];
        server.ProcessKeyboard(buffer);
        return testing::internal::GetCapturedStdout();
    };
    const std::string tooLong(kBufferSize, 'x');
    const std::tuple<std::string, std::vector<std::string>, std::string> rows[] = {
        {"v\n", {"00 BF 00 7F 00", "00 BF 51 00 00", "STATUS"}, "v"},
        {"f\n", {"00 BF 00 7F 00", "00 BF 66 01 00"}, "f"},
        {"read %s\nv\n", {"READ   :901A0000:901F0000:10"}, "read %s"},
        {"n", {"NEXT   :"}, "n"},
        {"c\n", {"CANCEL :"}, "c"},
        {"s\n", {"RESTART:"}, "s"},
        {"V\n", {}, "V"},
        {"\nv\n", {}, ""},
        {"", {}, ""},
        {tooLong, {}, tooLong.substr(1)},
    };
    patcher.TakeSent();
    for (const auto& [bytes, sent, text] : rows) {
        EXPECT_EQ(type(files.Write("typed", bytes)), "KEYBOARD: " + text + "\n");
        EXPECT_EQ(patcher.TakeSent(), sent) << bytes;
    }
    EXPECT_EQ(type(files.Path()), "KEYBOARD: \n") << "a directory can't be read";
    dup2(keyboard.Get(), STDIN_FILENO);
}

TEST_F(ServerTest, ReadsLanguageAndReleaseFromFirstLines)
{
    for (const auto& [text, language] :
         {std::pair("", 0), {"en\nja\n", 0}, {"jap", 0}, {" ja\r\n", 1}}) {
        ownUnit.Write(kLanguageFile, text);
        EXPECT_EQ(GetIOCLanguage(), language) << text;
    }
    EXPECT_FALSE(server.SendIOVersion(files.Path("missing").c_str()));
    EXPECT_TRUE(server.SendIOVersion(files.Write("empty", "").c_str()));
    const std::string release = files.Write("release", "1.00\n");
    // With room for one more descriptor: the file is closed before the log opens.
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit little = {static_cast<rlim_t>(UniqueFd(dup(STDIN_FILENO)).Get() + 1),
                           limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &little);
    EXPECT_TRUE(server.SendIOVersion(release.c_str()));
    setrlimit(RLIMIT_NOFILE, &limit);
    const std::string log = ownUnit.Read(kServerLog);
    EXPECT_NE(log.find(" - 1.00\n"), std::string::npos) << log;
}

// A file may change between its check and the load.
TEST_F(ServerTest, RequiresImageThatWasChecked)
{
    const std::string text = HexText("data", 4, "\r\n");
    Options options;
    options.versionOnly = true;
    files.Write("a.hex", text).copy(options.filename, sizeof(options.filename) - 1);
    Strict strict(options);
    EXPECT_TRUE(strict.Prepare(options));
    const std::size_t end = text.size() - 13;
    for (const std::string& other : {std::string(), text.substr(0, end), text + "\r\n:00\r\n",
                                     text.substr(0, end) + ":00000001FE\r\n"}) {
        THexFile image;
        EXPECT_TRUE(image.LoadFromText(other));
        EXPECT_FALSE(strict.RequireSame(options, &image)) << other;
        EXPECT_TRUE(strict.Prepare(options)) << "its text is dropped each time";
    }
    THexFile same;
    EXPECT_TRUE(same.LoadFromText(text));
    EXPECT_TRUE(strict.RequireSame(options, &same));
    EXPECT_FALSE(strict.RequireSame(options, nullptr));
}
