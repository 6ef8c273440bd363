// One server process from a bad morning to a good end.

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

// The sanitizer keeps what was freed, for longer than a day, and looks for leaks itself.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kCountsMemory = false;
#else
constexpr bool kCountsMemory = true;
#endif
constexpr long kRoom = 256;  // KiB, for one image at a time

std::size_t OpenDescriptors(pid_t id)
{
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(id) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// What the process has of its own in memory, in KiB.
long OwnMemory(pid_t id)
{
    std::ifstream lines("/proc/" + std::to_string(id) + "/status");
    long size = 0;
    for (std::string word; lines >> word;)
        if (word == "RssAnon:")
            lines >> size;
    return size;
}

}  // namespace

TEST(Day, EndsWithTheServerAsItWasInTheMorning)
{
    struct Row {
        const char* groups;
        std::string answer;  // its beginning, where a time stands behind it
    };
    const std::vector<Row> round = {
        {"90 3C 40 00 DF DF DF DF", "1.00\n"},
        {"DF DF DF E1 DF DF DF DF", kServiceText},
        {"6C 3C 40 00 DF DF DF E0 DF DF DF DF", "1.00\n"},
        {kFindUpdate, " \n[ System version: Update File ]\nV7\n"},
        {kBackup, "Copying CSP Parameters...HD -> FD\nCopy Success.\n"},
        {kRestore, "Copying CSP Parameters...FD -> HD\nCopy Success.\n"},
        {kFindParameters, "[ Parameter Back Up File ]\nCSP Parameter : ("},
        {"DF DF 00 C5 DF DF DF DF", "1.00\n"},
        {kFindUpdate, " \n[ System version: Update File ]\nV7\n"},
        {kFindParameters, "[ Parameter Back Up File ]\nCSP Parameter : ("}};
    constexpr int kRounds = 5;
    const std::string firmware = FirmwareOf("V7", 0x9000);
    const std::string parameters = Firmware(0x6000);
    OpenServer day({}, "--silent");
    day.unit.Mount("usb");
    day.unit.Write("medium/csp_prog.rlg", PackedText(firmware));
    day.PutParameters(parameters);
    EXPECT_EQ(day.Ask("DF DF DF E0 DF DF DF DF", "1.00\n"), "1.00\n");
    const pid_t id = day.server->Id();
    const std::size_t descriptors = OpenDescriptors(id);
    const long memory = OwnMemory(id);

    for (int i = 0; i < kRounds; ++i) {
        for (const Row& row : round)
            EXPECT_EQ(day.Ask(row.groups, row.answer).substr(0, row.answer.size()), row.answer);
        EXPECT_TRUE(TellPiano(day.unit, "hello\n<message_box>"));
        EXPECT_TRUE(day.controller->WaitFor("hello\r\n"));
        if (i == 1) {
            EXPECT_TRUE(TellPiano(day.unit, "@drop"));
            EXPECT_TRUE(day.unit.WaitForLog("Connected to MIDI Patcher\n"));
        }
        if (i == 2) {
            EXPECT_NE(day.AskAndReboot(kUpdateParameters).find("Success"), std::string::npos);
            EXPECT_TRUE(day.unit.Flash(kImageStart, parameters.size()) == parameters);
        }
        if (i == 3) {
            day.Ask(kFindUpdate, "V7\n");
            EXPECT_NE(day.AskAndReboot(kUpdate).find("Success"), std::string::npos);
            EXPECT_TRUE(day.unit.Flash(kImageStart, firmware.size()) == firmware);
        }
        if (i < 3)
            day.Connect();
    }

    EXPECT_EQ(OpenDescriptors(id), descriptors);
    EXPECT_TRUE(!kCountsMemory || OwnMemory(id) <= memory + kRoom);
    EXPECT_EQ(Events(day.unit, "> midi C0 90 3C 40 00").size(), std::size_t{kRounds});
    EXPECT_EQ(Events(day.unit, "> midi 80 6C 3C 40 00").size(), std::size_t{kRounds});
    EXPECT_TRUE(WaitUntil(
        [&] { return Count(day.unit.Read("sim/rc.log"), "<message_box>\r\n") == kRounds; }));

    day.SetFaults("--join");
    day.Ask(kReadParameters, "CSP Read Success.\nRebooting CSP...\n");
    EXPECT_TRUE(EndedClean(day.unit, *day.server));
    EXPECT_TRUE(BytesOf(day.unit, "usr/local/lib/diag/csp_param.hex") ==
                day.unit.Flash(kImageStart, kParameterSize));
    for (const auto& [entry, count] : {std::pair<const char*, std::size_t>{"CSP Read Failed.\n", 1},
                                       {"CSP Update Success.\n", 2},
                                       {"Trying to Connect MIDI Patcher...\n", 1},
                                       {"CSP Read Success.\n", 1}})
        EXPECT_EQ(Count(day.unit.Log(), entry), count) << entry;
}
