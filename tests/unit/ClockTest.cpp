// The unit's time: it jumps when everyone waits, the same way in each run.

#include <chrono>
#include <filesystem>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Unit.h"

using std::chrono::seconds;

TEST(Clock, ReportsWaitersWhenNothingMoreHappens)
{
    Unit unit;
    unit.StartPiano({"--late", "3"});

    testing::internal::CaptureStderr();
    EXPECT_FALSE(WaitUntil([] { return false; }));

    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "nothing more happens at 3.000000 s\nsimpiano waits in poll without a deadline\n");
    EXPECT_EQ(UnitTime(), seconds(3));
}

TEST(Clock, EndsWaitAtLimit)
{
    Unit unit;
    unit.StartPiano({"--late", "100"});

    testing::internal::CaptureStderr();
    EXPECT_FALSE(WaitUntil([] { return false; }, seconds(5)));

    EXPECT_NE(testing::internal::GetCapturedStderr().find("simpiano waits in poll until 100.0"),
              std::string::npos);
    EXPECT_EQ(UnitTime(), seconds(5));
}

TEST(Clock, GoesOnWithoutKilledProcess)
{
    Unit unit;
    Process& killed = unit.Start("probe_plain", {"sleep 1000"});
    Process& other = unit.Start("probe_plain", {"sleep 10"});
    EXPECT_TRUE(unit.WaitForJournal("sleep(10)"));

    EXPECT_EQ(killed.Kill(), 128 + SIGKILL);

    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(UnitTime(), seconds(10));
}

TEST(Clock, StampsWrittenFiles)
{
    Unit unit;

    unit.Start("probe_plain", {"create early", "sleep 10", "create late", "write"}).Wait();

    struct stat early = {};
    struct stat late = {};
    EXPECT_EQ(stat(unit.Path("cwd/early").c_str(), &early), 0);
    EXPECT_EQ(stat(unit.Path("cwd/late").c_str(), &late), 0);
    EXPECT_EQ(early.st_mtime, virtualtime::kBegin / virtualtime::kSecond);
    EXPECT_EQ(late.st_mtime - early.st_mtime, 10);
}

TEST(Clock, MakesRunsIdentical)
{
    std::string first;
    for (int i = 0; i < 2; ++i) {
        Unit unit;
        unit.StartPiano({"--join", "--read-stop", "90043000"});
        const std::string output = unit.Run({"-P", "0"}).Output();
        const std::string run = unit.MidiLog() + output + unit.Log();
        EXPECT_NE(run.find("CSP Read Success."), std::string::npos);
        if (i == 0)
            first = run;
        EXPECT_EQ(run, first);
    }
}

TEST(UnitDeathTest, FailsTestWhoseProgramWritesOutsideUnit)
{
    EXPECT_DEATH(
        {
            Unit unit;
            unit.Start("probe_plain", {"create /var/tmp/stray"}).Wait();
        },
        "writes outside the unit: stray open\\(/var/tmp/stray\\)");
    EXPECT_FALSE(std::filesystem::exists("/var/tmp/stray"));
}
