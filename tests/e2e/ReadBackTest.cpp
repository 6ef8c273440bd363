// The read-back of the CSP's parameters: the server's own at its start, and the controller's.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kParameterFile[] = "usr/local/lib/diag/csp_param.hex";
constexpr char kFailed[] = "CSP Read Failed.\nRebooting CSP...\n";
constexpr char kRange[] = "READ   :90040000:900A0000:0C";
// Of 96 blocks in 342 records each, with 6 base records and the end.
constexpr std::size_t kFileLines = 96 * 342 + 6 + 1;

}  // namespace

TEST(ReadBack, SavesFlashReportsProgressAndEndsServer)
{
    Unit unit;
    const std::string flash = Firmware(kParameterSize);
    unit.Write("sim/flash", flash);
    unit.StartPiano({"--silent", "--load", unit.Path("sim/flash") + "@90040000"});
    Process& server = unit.StartServer();
    Controller controller(unit.Port());
    EXPECT_TRUE(unit.WaitFor("sim/midi.log", "> console STATUS"));
    // Breaks the CSP's silence once somebody listens.
    EXPECT_TRUE(TellPiano(unit, "@faults --join --read-cut 1000"));
    EXPECT_TRUE(TellPiano(unit, "awake"));

    EXPECT_TRUE(EndsClean(unit, server));

    EXPECT_TRUE(controller.WaitForClose());
    std::string texts = "Connecting to CSP\n";
    std::istringstream shares(
        "2 4 6 8 10 12 14 18 20 22 25 27 29 31 35 37 39 41 43 45 47 52 54 56 58 "
        "60 62 64 68 70 72 75 77 79 81 85 87 89 91 93 95 97 100");
    for (std::string share; shares >> share;)
        texts += "Reading CSP " + share + "%\n";
    EXPECT_EQ(controller.Received(), texts + "CSP Read Success.\nRebooting CSP...\n");
    EXPECT_TRUE(BytesOf(unit, "cwd/csp_param.hex") == flash);
    EXPECT_EQ(Count(unit.Read("cwd/csp_param.hex"), "\r\n"), kFileLines);
    EXPECT_FALSE(unit.Exists(kParameterFile));
    EXPECT_EQ(Events(unit, "> console NEXT").size(), 96U);
    EXPECT_EQ(Events(unit, "> console READ")[0], std::string("> console ") + kRange);
    EXPECT_TRUE(Events(unit, "bad").empty()) << Events(unit, "bad")[0];
    const std::string log = LogTexts(unit);
    EXPECT_EQ(log.substr(log.rfind("CSP Read")), "CSP Read Success.\nRebooting CSP...5sec\n");
    const std::string journal = unit.Journal();
    EXPECT_EQ(journal.substr(journal.find("ioctl")),
              "ioctl(/dev/PciDsp, 33, 0xc00) = 0\nsleep(5)\nioctl(/dev/PciDsp, 33, 0xc01) = 0\n"
              "exit descriptors=0\n");
}

TEST(ReadBack, OfControllerGoesToItsOwnFileEvenAfterFailedOne)
{
    OpenServer server;
    server.PutParameters("old");
    const std::string old = server.unit.Read(kParameterFile);

    // Breaks off right after a request for more, which must not keep the next one from asking.
    server.SetFaults("--bad-checksum-at 90041000");
    EXPECT_EQ(server.AskAndReboot(kReadParameters), std::string("Connecting to CSP\n") + kFailed);
    EXPECT_EQ(server.unit.Read(kParameterFile), old);

    server.SetFaults("--join");
    EXPECT_NE(server.Ask(kReadParameters, "Rebooting").find("100%\nCSP Read Success.\n"),
              std::string::npos);
    EXPECT_TRUE(EndsClean(server.unit, *server.server));
    EXPECT_TRUE(BytesOf(server.unit, kParameterFile) == std::string(kParameterSize, '\xFF'));
    // Nothing of the first one is left in it.
    EXPECT_EQ(Count(server.unit.Read(kParameterFile), "\r\n"), kFileLines);
    EXPECT_FALSE(server.unit.Exists("cwd/csp_param.hex"));
    EXPECT_TRUE(server.HasLogged(
        "Start Reading CSP Parameters\nCSP Read Success.\nRebooting CSP...5sec\n"));
}
