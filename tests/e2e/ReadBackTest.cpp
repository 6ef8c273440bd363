// The read-back of the CSP's parameters: at the start of the server, and by command.

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr std::size_t kSize = 0x60000;  // bytes that a read-back covers

}  // namespace

TEST(ReadBack, RequestsOnlyFirstBlockIfCspStartsUnrequested)
{
    Scene scene;
    scene.StartWithPeers();
    scene.StartReading();
    scene.Say(Frames({UpperRecord(0)}));
    for (std::size_t at = 0; at < 0x2000; at += 128)
        scene.Say(Frames({Record(0, at, std::string(128, 'x'))}));
    EXPECT_EQ(scene.TakeReplies(), "") << "no percentage of an unknown range";
    const Words lines = scene.patcher->Lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "NEXT   :"), 1);
}

TEST(ReadBack, SavesFlashAtStartAndEndsServer)
{
    Scene scene;
    const std::string flash = Firmware(kSize);
    scene.StartWithPiano(kAnyPort, {"--load", scene.Write("sim/flash", flash) + "@90040000"});

    EXPECT_EQ(scene.AwaitEnd(*scene.server), 0);

    EXPECT_TRUE(scene.Read("cwd/csp_param.hex") == HexText(flash, 12, "\r\n"));
    EXPECT_FALSE(scene.Exists(kParameterFile));
    EXPECT_EQ(Count(scene.MidiLog(), "> console READ   :90040000:900A0000:0C\n"), 1U);
    EXPECT_EQ(Count(scene.MidiLog(), "> console NEXT"), 96U);
    EXPECT_EQ(scene.piano->Kill(SIGTERM), 0) << scene.piano->Error();
    const std::string log = scene.LogTexts();
    EXPECT_EQ(log.substr(log.rfind("CSP Read")), "CSP Read Success.\nRebooting CSP...5sec\n");
    const std::string journal = scene.Journal();
    EXPECT_EQ(journal.substr(journal.find("ioctl")),
              "ioctl(/dev/PciDsp, 33, 0xc00) = 0\nsleep(5)\nioctl(/dev/PciDsp, 33, 0xc01) = 0\n"
              "exit descriptors=0\n");
}

TEST(ReadBack, ByCommandReportsProgressAndSavesToParameterFile)
{
    Scene scene;
    scene.OpenWithPiano();
    scene.Write(kParameterFile, "old");
    std::string texts = "Connecting to CSP\n";

    // This read-back ends right after a request for a block, which must not keep the next one from
    // requesting blocks.
    scene.SetFaults("--bad-checksum-at 90041000");
    EXPECT_EQ(scene.Ask(kReadParameters, "Rebooting CSP...\n"),
              texts + "CSP Read Failed.\nRebooting CSP...\n");
    EXPECT_EQ(scene.Read(kParameterFile), "old");

    scene.SetFaults("--join --read-cut 1000");
    for (const std::string& percentage :
         Split("2 4 6 8 10 12 14 18 20 22 25 27 29 31 35 37 39 41 43 45 47 52 54 56 58 60 62 64 "
               "68 70 72 75 77 79 81 85 87 89 91 93 95 97 100"))
        texts += "Reading CSP " + percentage + "%\n";
    const std::string shown = scene.Ask(kReadParameters, "Rebooting CSP...\n");
    EXPECT_EQ(shown.substr(shown.find("Connecting")),
              texts + "CSP Read Success.\nRebooting CSP...\n");
    EXPECT_EQ(scene.AwaitEnd(*scene.server), 0);
    EXPECT_TRUE(scene.controller->WaitForClose());
    EXPECT_TRUE(scene.Read(kParameterFile) == HexText(std::string(kSize, '\xFF'), 12, "\r\n"));
    EXPECT_FALSE(scene.Exists("cwd/csp_param.hex"));
    const std::string log = scene.LogTexts();
    EXPECT_EQ(log.substr(log.rfind("Start")),
              "Start Reading CSP Parameters\nCSP Read Success.\nRebooting CSP...5sec\n");
}
