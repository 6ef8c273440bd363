#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/time.h>

#include <gtest/gtest.h>

#include "Log.h"
#include "TempDir.h"

// Replaces libc's in this program.
extern "C" int gettimeofday(timeval* now, void*) noexcept
{
    *now = {1142327107, 0};
    return 0;
}

TEST(Log, StampsEntriesWithUtcAndAddsNoLineEnd)
{
    const TempDir dir;
    setenv("TZ", "XXX-9", 1);
    for (const char* text : {"100%s\n", static_cast<const char*>(nullptr), "\n"})
        EXPECT_TRUE(AddLogFile(dir.Path("log").c_str(), text));
    EXPECT_EQ(dir.Read("log"), "06/03/14/09:05:07 - 100%s\n"
                               "06/03/14/09:05:07 - 06/03/14/09:05:07 - \n");
}

TEST(Log, ReportsFailedOpenAndWrite)
{
    const TempDir dir;
    EXPECT_FALSE(AddLogFile(dir.Path("no/log").c_str(), "text\n"));
    EXPECT_FALSE(AddLogFile("/dev/full", std::string(100000, 'x').c_str()));
    EXPECT_FALSE(ResetLogFile(dir.Path("missing").c_str(), 50));
}

TEST(Log, KeepsNewestLines)
{
    const struct {
        const char* name;
        int kept;
        std::string content, expected;
    } rows[] = {{"two too many", 2, "a\nb\nc\nd", "c\nd"},
                {"just enough", 3, "a\nb\nc\n", "a\nb\nc\n"},
                {"less than none", -1, "a\nb\n", ""},
                {"a long line is two", 2, std::string(1023, 'x') + "\na\n", "\na\n"}};
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
