// The read-back of the CSP's parameters: at the start of the server, and by command.

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr std::size_t kParameterSize = 0x60000;  // bytes that a read-back covers
constexpr std::size_t kBlock = 0x1000;

// The file of a read-back: records of 12 bytes, with a shorter one at the end of each block.
std::string FileOf(const std::string& flash)
{
    std::string text;
    for (std::size_t at = 0; at < flash.size();) {
        if (at % 0x10000 == 0)
            text += Record(4, 0, {'\x90', static_cast<char>(4 + (at >> 16U))}) + "\r\n";
        const std::size_t size = std::min<std::size_t>(12, kBlock - at % kBlock);
        text += Record(0, at % 0x10000, flash.substr(at, size)) + "\r\n";
        at += size;
    }
    return text + ":00000001FF\r\n";
}

}  // namespace

TEST(ReadBack, RequestsOnlyFirstBlockIfCspStartsUnrequested)
{
    ServerWithPeers scene;
    scene.Say(Frames({"Status:Flash Idle", "Start READ"}));
    EXPECT_TRUE(scene.patcher.WaitForLine("NEXT   :"));
    scene.TakeReplies();
    scene.Say(Frames({Record(4, 0, "\x90\x04")}));
    for (std::size_t at = 0; at < 0x2000; at += 128)
        scene.Say(Frames({Record(0, at, std::string(128, 'x'))}));
    EXPECT_EQ(scene.TakeReplies(), "") << "no percentage of an unknown range";
    const std::vector<std::string> lines = scene.patcher.Lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "NEXT   :"), 1);
}

TEST(ReadBack, SavesFlashAtStartAndEndsServer)
{
    Unit unit;
    const std::string flash = Firmware(kParameterSize);
    unit.Write("sim/flash", flash);
    Process& piano = unit.StartPiano({"--load", unit.Path("sim/flash") + "@90040000"});
    Process& server = unit.StartServer();

    ExpectCleanEnd(unit, server);

    EXPECT_TRUE(unit.Read("cwd/csp_param.hex") == FileOf(flash));
    EXPECT_FALSE(unit.Exists(kParameterFile));
    EXPECT_EQ(Count(unit.MidiLog(), "> console READ   :90040000:900A0000:0C\n"), 1U);
    EXPECT_EQ(Count(unit.MidiLog(), "> console NEXT"), 96U);
    EXPECT_EQ(piano.Kill(SIGTERM), 0) << piano.Error();
    const std::string log = LogTexts(unit);
    EXPECT_EQ(log.substr(log.rfind("CSP Read")), "CSP Read Success.\nRebooting CSP...5sec\n");
    const std::string journal = unit.Journal();
    EXPECT_EQ(journal.substr(journal.find("ioctl")),
              "ioctl(/dev/PciDsp, 33, 0xc00) = 0\nsleep(5)\nioctl(/dev/PciDsp, 33, 0xc01) = 0\n"
              "exit descriptors=0\n");
}

TEST(ReadBack, ByCommandReportsProgressAndSavesToParameterFile)
{
    ServerWithPiano scene;
    scene.unit.Write(kParameterFile, "old");
    std::string texts = "Connecting to CSP\n";

    // This read-back ends right after a request for a block, which must not keep the next one from
    // requesting blocks.
    scene.SetFaults("--bad-checksum-at 90041000");
    EXPECT_EQ(scene.Ask(kReadParameters, "Rebooting CSP...\n"),
              texts + "CSP Read Failed.\nRebooting CSP...\n");
    EXPECT_EQ(scene.unit.Read(kParameterFile), "old");

    scene.SetFaults("--join --read-cut 1000");
    std::istringstream percentages(
        "2 4 6 8 10 12 14 18 20 22 25 27 29 31 35 37 39 41 43 45 47 52 54 56 58 "
        "60 62 64 68 70 72 75 77 79 81 85 87 89 91 93 95 97 100");
    for (std::string percentage; percentages >> percentage;)
        texts += "Reading CSP " + percentage + "%\n";
    const std::string shown = scene.Ask(kReadParameters, "Rebooting CSP...\n");
    EXPECT_EQ(shown.substr(shown.find("Connecting")),
              texts + "CSP Read Success.\nRebooting CSP...\n");
    ExpectCleanEnd(scene.unit, scene.server);
    EXPECT_TRUE(scene.controller.WaitForClose());
    EXPECT_TRUE(scene.unit.Read(kParameterFile) == FileOf(std::string(kParameterSize, '\xFF')));
    EXPECT_FALSE(scene.unit.Exists("cwd/csp_param.hex"));
    const std::string log = LogTexts(scene.unit);
    EXPECT_EQ(log.substr(log.rfind("Start")),
              "Start Reading CSP Parameters\nCSP Read Success.\nRebooting CSP...5sec\n");
}
