// Updates that the controller asks the server for: the search for a file, the start, the end.

#include <cstdlib>
#include <ctime>
#include <sstream>

#include <utime.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kNoFile[] = "Update File is not exsit.\n";
constexpr char kNoParameters[] = "Parameter File is not exsit.\n";
constexpr char kNoUpdate[] = "Cannot Execute CSP Update.\n";
constexpr char kNoParameterUpdate[] = "Cannot execute Parameter Update.\n";
constexpr char kHeader[] = " \n[ System version: Update File ]\n";
constexpr char kUsbFile[] = "mnt/usb/csp_prog.hex";

constexpr std::size_t kSmall = 0x800;

std::string Hex(const std::string& version)
{
    return HexText(FirmwareOf(version, kSmall), 32, "\r\n");
}

std::string Packed(const std::string& version)
{
    return PackedText(FirmwareOf(version, kSmall));
}

std::string WithoutProgress(const std::string& texts)
{
    std::istringstream lines(texts);
    std::string rest;
    for (std::string line; std::getline(lines, line);)
        if (line != "Connecting to CSP" && line.compare(0, 13, "Sending Data ") != 0)
            rest += line + "\n";
    return rest;
}

}  // namespace

// ---- the search

TEST(UpdateSearch, TakesFirstFileFoundAndTriesNoOtherAfterFailure)
{
    const std::string cut = Packed("V1") + "\xDD\x01";
    const std::string overlong = std::string(81, '0') + "\n";
    struct Row {
        const char* name;
        std::vector<std::pair<std::string, std::string>> files;
        const char* version;  // null: nothing is found
        bool expands;         // perhaps in vain, but the older copy is gone
    };
    OpenServer server;
    for (const Row& row :
         {Row{"nothing", {}, nullptr, false},
          {"a file that was expanded before", {{"tmp/csp_prog.hex", Hex("V1")}}, nullptr, false},
          {"plain before compressed",
           {{"mnt/usb/csp_prog.hex", Hex("V1 usb")}, {"mnt/usb/csp_prog.rlg", Packed("V2")}},
           "V1 usb",
           false},
          {"USB before CD",
           {{"mnt/usb/csp_prog.rlg", Packed("V3")}, {"mnt/cdrom/csp_prog.hex", Hex("V4")}},
           "V3",
           true},
          {"CD, plain", {{"mnt/cdrom/csp_prog.hex", Hex("V5")}}, "V5", false},
          {"CD before floppy",
           {{"mnt/cdrom/csp_prog.rlg", Packed("V7")}, {"mnt/floppy/csp_prog.rlg", Packed("V8")}},
           "V7",
           true},
          {"floppy, in place of an older copy",
           {{"mnt/floppy/csp_prog.rlg", Packed("V9")}, {"tmp/csp_prog.hex", Hex("V1")}},
           "V9",
           true},
          {"nothing plain on floppy", {{"mnt/floppy/csp_prog.hex", Hex("V1")}}, nullptr, false},
          {"no version", {{"mnt/usb/csp_prog.hex", ":00000001FF\n"}}, "", false},
          {"a damaged file",
           {{"mnt/usb/csp_prog.rlg", cut},
            {"mnt/cdrom/csp_prog.hex", Hex("V1")},
            {"tmp/csp_prog.hex", Hex("V1")}},
           nullptr,
           true},
          {"an empty compressed file",
           {{"mnt/usb/csp_prog.rlg", ""}, {"mnt/floppy/csp_prog.rlg", Packed("V1")}},
           nullptr,
           false},
          {"no image",
           {{"mnt/usb/csp_prog.hex", overlong}, {"mnt/usb/csp_prog.rlg", Packed("V1")}},
           nullptr,
           false}}) {
        SCOPED_TRACE(row.name);
        for (const char* name : {"mnt/usb", "mnt/cdrom", "mnt/floppy"})
            for (const char* file : {"/csp_prog.hex", "/csp_prog.rlg"})
                server.unit.Remove(std::string(name) + file);
        server.unit.Remove("tmp/csp_prog.hex");
        for (const auto& [name, bytes] : row.files)
            server.unit.Write(name, bytes);
        const std::string before = server.unit.Read("tmp/csp_prog.hex");
        const std::size_t logged = LogTexts(server.unit).size();
        const bool found = row.version != nullptr;
        const std::string entry = found ? std::string(row.version) + "\n" : kNoFile;
        const std::string answer = (found ? kHeader : "") + entry;

        EXPECT_EQ(server.Ask(kFindUpdate, answer), answer);

        EXPECT_TRUE(WaitUntil([&] { return LogTexts(server.unit).substr(logged) == entry; }));
        EXPECT_EQ(server.unit.Read("tmp/csp_prog.hex") != before, row.expands);
    }
}

TEST(UpdateSearch, ShowsParameterFileTimeInUtc)
{
    setenv("TZ", "JST-9", 1);
    struct Row {
        std::time_t time;
        const char* text;
    };
    OpenServer server;
    server.PutParameters("parameters");
    for (const Row& row : {Row{1078477620, "(2004/3/5/09:07)"}, {951782400, "(2000/2/29/00:00)"}}) {
        const utimbuf times = {row.time, row.time};
        const std::string file = server.unit.Path("usr/local/lib/diag/csp_param.hex");
        ASSERT_EQ(utime(file.c_str(), &times), 0);
        const std::string line = std::string("CSP Parameter : ") + row.text + "\n";

        EXPECT_EQ(server.Ask(kFindParameters, line), "[ Parameter Back Up File ]\n" + line);

        EXPECT_TRUE(server.HasLogged(line));
    }
    EXPECT_EQ(Count(server.unit.Log(), "[ Parameter"), 0U);
}

// Which file an update writes depends on the search that came last, and on what it left.
TEST(UpdateSearch, DecidesWhetherAnUpdateStarts)
{
    struct Row {
        const char* file;   // written before
        const char* bytes;  // null: removed
        const char* command;
        std::string answer;
    };
    const std::string firmware = Hex("V5");
    const std::string found = std::string(kHeader) + "V5\n";
    const std::string overlong = std::string(81, '0') + "\n";
    const char* parameters = "usr/local/lib/diag/csp_param.hex";
    OpenServer server;
    for (const Row& row : {Row{kUsbFile, nullptr, kUpdate, kNoUpdate},
                           {kUsbFile, nullptr, kUpdateParameters, kNoParameterUpdate},
                           {kUsbFile, nullptr, kFindUpdate, kNoFile},
                           {kUsbFile, nullptr, kFindParameters, kNoParameters},
                           {kUsbFile, nullptr, kUpdate, kNoUpdate},
                           {kUsbFile, firmware.c_str(), kFindUpdate, found},
                           {parameters, overlong.c_str(), kFindParameters, kNoParameters},
                           {kUsbFile, firmware.c_str(), kUpdate, kNoUpdate},
                           {kUsbFile, firmware.c_str(), kFindUpdate, found},
                           {kUsbFile, nullptr, kFindUpdate, kNoFile},
                           {parameters, nullptr, kFindParameters, kNoParameters}}) {
        SCOPED_TRACE(row.command);
        server.unit.Remove(row.file);
        if (row.bytes != nullptr)
            server.unit.Write(row.file, row.bytes);
        const std::size_t logged = LogTexts(server.unit).size();

        EXPECT_EQ(server.Ask(row.command, row.answer), row.answer);

        const std::string entry = row.answer == found ? "V5\n" : row.answer;
        EXPECT_TRUE(WaitUntil([&] { return LogTexts(server.unit).substr(logged) == entry; }));
    }

    server.AskAndReboot(kUpdateParameters);
    EXPECT_TRUE(server.HasLogged(
        "Start CSP Parameter Update.\nCSP Update Success.\nRebooting CSP...5sec\n"));
    EXPECT_EQ(server.unit.Flash(kImageStart, kSmall), FirmwareOf("V5", kSmall));
    EXPECT_EQ(server.Ask(kUpdate, "\n"), kNoUpdate);
}

// ---- the update

TEST(ServerUpdate, SucceedsWhileControllerInterferes)
{
    OpenServer server;
    const std::string firmware = FirmwareOf("V8", 0x1A000);
    server.unit.Write("mnt/usb/csp_prog.rlg", PackedText(firmware));
    server.Ask(kFindUpdate, "V8\n");
    const std::size_t before = server.controller->Received().size();
    const std::string groups = Bytes("DF DF DF DF 90 3C 40 00 DF DF 00 C0 6C 01 02 03 DF DF 00 C3");

    server.Ask("DF DF 00 BB DF DF DF DF 90 3C 40 00 DF DF 00 AA", "Connecting to CSP\n");
    for (const char* share : {"30%", "38%", "46%", "76%"}) {
        EXPECT_TRUE(server.controller->WaitFor(share));
        server.controller->Send(groups);
    }

    EXPECT_TRUE(server.controller->WaitFor("Rebooting CSP...\n"));
    std::string texts = server.controller->Received().substr(before);
    texts = texts.substr(texts.rfind("Connecting to CSP\n"),
                         texts.find("Rebooting") - texts.rfind("Conn"));
    EXPECT_EQ(texts, "Connecting to CSP\nSending Data 30%\nSending Data 38%\nSending Data 46%\n"
                     "Sending Data 76%\nSending Data 84%\nSending Data 92%\nSending Data 100%\n"
                     "CSP Update Success.\n");
    EXPECT_TRUE(server.HasLogged("Start CSP Update.\nCSP Update Success.\nRebooting CSP...5sec\n"));
    EXPECT_TRUE(server.unit.Flash(kImageStart, firmware.size()) == firmware);
    // What came too late for the gate is carried out after the update, nothing in the middle of
    // it.
    const std::string wire = server.unit.MidiLog();
    const std::size_t start = wire.find("> console WRITE");
    EXPECT_GT(wire.find("midi C0 90", start), wire.find("< console Finished", start));
    EXPECT_GT(wire.find("midi 80 6C", start), wire.find("< console Finished", start));
    // One at least came in the same read as the command, and waits nowhere.
    EXPECT_LT(Count(wire, "midi C0 90 3C 40 00"), 5U);
    EXPECT_TRUE(Events(server.unit, "bad").empty()) << Events(server.unit, "bad")[0];
}

struct FaultRow {
    const char* name;
    const char* faults;
    const char* end;  // the texts other than progress
};

class ServerUpdateOf : public testing::TestWithParam<FaultRow> {};

TEST_P(ServerUpdateOf, FaultyPianoReportsResultAndOpensGate)
{
    const FaultRow& row = GetParam();
    const std::string end = row.end;
    OpenServer server;
    const std::string firmware = FirmwareOf("V6", 0x8000);
    server.unit.Write(kUsbFile, HexText(firmware, 16, "\n"));
    server.Ask(kFindUpdate, "V6\n");
    server.SetFaults(row.faults);
    const std::size_t readTimeouts = Count(server.unit.Log(), "CSP Read status Inc.\n");

    const std::string texts = server.AskAndReboot(kUpdate);

    EXPECT_EQ(WithoutProgress(texts), end + "Rebooting CSP...\n");
    const std::string outcome = end.substr(end.rfind("CSP Update"));
    EXPECT_TRUE(server.HasLogged(outcome + "Rebooting CSP...5sec\n"));
    if (outcome == "CSP Update Success.\n") {
        EXPECT_TRUE(server.unit.Flash(kImageStart, firmware.size()) == firmware);
    }
    EXPECT_EQ(Count(server.unit.Log(), "CSP Read status Inc.\n"), readTimeouts);
    server.Ask(kVersion, kServiceText);
    server.Ask(kUpdate, kNoUpdate);
    EXPECT_EQ(server.unit.Log(kUpdateLog), "");
}

constexpr char kSuccess[] = "CSP Update Success.\n";
constexpr char kFailure[] = "CSP Update Failed.\n";
constexpr char kNoAnswer[] = "CSP is not connected.\nCSP Update Failed.\n";

INSTANTIATE_TEST_SUITE_P(
    With, ServerUpdateOf,
    testing::Values(FaultRow{"NoFault", "", kSuccess},
                    FaultRow{"ARefusedBlock", "--ng-at 90042100", kSuccess},
                    FaultRow{"AFailure", "--fail 1", kFailure},
                    FaultRow{"SilenceFromTheStart", "--silent", kNoAnswer},
                    FaultRow{"SilenceInTheTransfer", "--silent-after 700", kFailure},
                    FaultRow{"SomeChatter", "--chatter 900", kSuccess},
                    FaultRow{"UnwantedLinesWithoutEnd", "--garbage-endless", kFailure},
                    FaultRow{"ALinkThatBreaks", "--cut-link-every 3000", kFailure}),
    [](const auto& row) { return row.param.name; });
