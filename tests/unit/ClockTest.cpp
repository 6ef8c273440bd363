// The unit's time: it jumps when everyone waits, the same way in each run.

#include <gtest/gtest.h>

#include "Unit.h"

using std::chrono::seconds;

TEST(Clock, EndsWaitAtLimitOrDeadlock)
{
    Unit unit;
    unit.StartPiano({"--late", "8"});
    testing::internal::CaptureStderr();
    EXPECT_FALSE(WaitUntil([] { return false; }, seconds(5)));
    EXPECT_EQ(UnitTime(), seconds(5));
    EXPECT_FALSE(WaitUntil([] { return false; }));
    EXPECT_EQ(UnitTime(), seconds(8));

    const std::string reports = testing::internal::GetCapturedStderr();
    EXPECT_NE(reports.find("simpiano waits in select until 8.000000 s\n"), std::string::npos);
    EXPECT_NE(reports.find("simpiano waits in select without a deadline\n"), std::string::npos);
}

TEST(Clock, MakesRunsIdentical)
{
    std::string runs[2];
    for (std::string& run : runs) {
        Unit unit;
        unit.StartPiano({"--join", "--read-stop", "90043000"});
        const std::string output = unit.Run({"-P", "0"}).Output();
        run = unit.MidiLog() + output + unit.Log();
    }
    EXPECT_NE(runs[0].find("CSP Read Success."), std::string::npos);
    EXPECT_EQ(runs[0], runs[1]);
}

TEST(Clock, PassesByItselfForPeople)
{
#ifdef __arm__
    GTEST_SKIP() << "people run it on their own machine";
#endif
    const TempDir dir;
    CopyNewUnit(dir.Path("unit"));
    const std::string path = dir.Path("unit/sim/clock");
    Process clock({{Program("simclock"), "serve", path, "1000"}, {}, "/", dir.Path("out"), ""});
    ASSERT_TRUE(WaitUntil([&] { return clock.Output() == "ready\n"; }));

    const Words variables = {"LD_PRELOAD=" + Program("libsimunit.so"), "SIMUNIT_CLOCK=" + path};
    Process sleeper({{Program("probe"), "sleep 100"}, variables, "/", dir.Path("slept"), ""});
    EXPECT_EQ(sleeper.Wait(), 0);
    EXPECT_EQ(sleeper.Output(), "sleep 100 = 0\n");
}

TEST(UnitDeathTest, FailsTestWhoseProgramWritesOutsideUnit)
{
    EXPECT_DEATH(
        {
            Unit unit;
            unit.Start("probe", {"create /var/tmp/stray"}).Wait();
        },
        "writes outside the unit: stray open\\(/var/tmp/stray\\)");
    EXPECT_FALSE(std::filesystem::exists("/var/tmp/stray"));
}
