#include <cstdlib>
#include <ctime>
#include <filesystem>
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
    EXPECT_GE(log.substr(0, 17), before);
    EXPECT_LE(log.substr(0, 17), after);
    EXPECT_EQ(log.substr(17, 9), " - 100%s\n");
    EXPECT_EQ(log.substr(43, 3), " - ");
    EXPECT_EQ(log.substr(63), " - ");
}

TEST(Log, FailsWhereItCannotBeOpenedOrWritten)
{
    const TempDir dir;
    EXPECT_FALSE(AddLogFile(dir.Path("no/log").c_str(), "text\n"));
    EXPECT_FALSE(AddLogFile("/dev/full", std::string(100000, 'x').c_str()));
    EXPECT_FALSE(ResetLogFile(dir.Path("missing").c_str(), 50));
    EXPECT_FALSE(dir.Exists("missing"));
}

TEST(Log, IsCutToItsNewestLines)
{
    const std::string longLine = std::string(1500, 'x') + "\n";
    const struct {
        const char* name;
        int kept;
        std::string content, expected;
    } rows[] = {{"two too many", 2, "a\nb\nc\nd", "c\nd"},
                {"just enough", 3, "a\nb\nc\n", "a\nb\nc\n"},
                {"empty", 50, "", ""},
                {"less than none", -1, "a\nb\n", ""},
                {"a long line is two", 2, longLine + "a\n", std::string(477, 'x') + "\na\n"}};
    for (const auto& row : rows) {
        const TempDir dir;
        const std::string path = dir.Write("log", row.content);
        std::filesystem::create_hard_link(path, dir.Path("old"));
        EXPECT_TRUE(ResetLogFile(path.c_str(), row.kept)) << row.name;
        EXPECT_TRUE(dir.Exists("log")) << row.name;
        EXPECT_EQ(dir.Read("old"), row.content) << "the log is a new file";
        EXPECT_EQ(dir.Read("log"), row.expected) << row.name;
    }
}
