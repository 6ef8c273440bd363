#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "Log.h"
#include "TempDir.h"

namespace {

std::string UtcNow()
{
    const std::time_t now = std::time(nullptr);
    char text[32];
    std::strftime(text, sizeof text, "%y/%m/%d/%H:%M:%S", std::gmtime(&now));
    return text;
}

std::string Lines(int first, int last)
{
    std::string lines;
    for (int line = first; line <= last; ++line)
        lines += "line " + std::to_string(line) + "\n";
    return lines;
}

constexpr std::size_t kStampSize = 17;

}  // namespace

TEST(Log, StampsEntriesWithUtcAndAddsNoLineEnd)
{
    const TempDir dir;
    const std::string path = dir.Path("log");
    setenv("TZ", "XXX-9", 1);
    tzset();

    const std::string before = UtcNow();
    EXPECT_TRUE(AddLogFile(path.c_str(), "100%s\n"));
    EXPECT_TRUE(AddLogFile(path.c_str(), nullptr));
    EXPECT_TRUE(AddLogFile(path.c_str(), ""));
    const std::string after = UtcNow();

    const std::string log = dir.Read("log");
    ASSERT_EQ(log.size(), 3 * (kStampSize + 3) + 6);
    EXPECT_GE(log.substr(0, kStampSize), before);
    EXPECT_LE(log.substr(0, kStampSize), after);
    EXPECT_EQ(log.substr(kStampSize, 9), " - 100%s\n");
    EXPECT_EQ(log.substr(2 * kStampSize + 9, 3), " - ");
    EXPECT_EQ(log.substr(log.size() - 3), " - ");
}

TEST(Log, IsNoMatterWhereThereIsNoDirectory)
{
    const TempDir dir;
    const std::string path = dir.Path("no/log");
    EXPECT_FALSE(AddLogFile(path.c_str(), "text\n"));
    EXPECT_FALSE(ResetLogFile(path.c_str(), 50));
    EXPECT_FALSE(ResetLogFile(dir.Path("missing").c_str(), 50));
    EXPECT_FALSE(dir.Exists("missing"));
}

TEST(Log, IsCutToItsNewestLines)
{
    const std::string longLine = std::string(1500, 'x') + "\n";
    const struct {
        const char* name;
        std::string content;
        int kept;
        std::string expected;
    } rows[] = {{"one too many", Lines(1, 51), 50, Lines(2, 51)},
                {"just enough", Lines(1, 50), 50, Lines(1, 50)},
                {"no line end", "a\nb\nc", 2, "b\nc"},
                {"empty", "", 50, ""},
                {"none to keep", Lines(1, 3), 0, ""},
                {"less than none", Lines(1, 3), -1, ""},
                {"a long line is two", longLine + "a\n", 2, std::string(477, 'x') + "\na\n"}};
    for (const auto& row : rows) {
        const TempDir dir;
        const std::string path = dir.Write("log", row.content);
        EXPECT_TRUE(ResetLogFile(path.c_str(), row.kept)) << row.name;
        EXPECT_TRUE(dir.Exists("log")) << row.name;
        EXPECT_EQ(dir.Read("log"), row.expected) << row.name;
    }
}
