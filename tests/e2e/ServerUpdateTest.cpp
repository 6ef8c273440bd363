// Updates that the controller asks the server for: the search for a file, the start, the end.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <utime.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kNoFile[] = "Update File is not exsit.\n";
constexpr char kNoParameters[] = "Parameter File is not exsit.\n";
constexpr char kNoUpdate[] = "Cannot Execute CSP Update.\n";
constexpr char kHeader[] = " \n[ System version: Update File ]\n";

const std::string kOverlong = std::string(81, '0') + "\n";  // no line of an image

std::string Hex(const std::string& version)
{
    return HexText(FirmwareOf(version, 0x800), 32, "\r\n");
}

std::string Packed(const std::string& version)
{
    return PackedText(FirmwareOf(version, 0x800));
}

}  // namespace

// ---- the search

// The version of each file is its own name.
TEST(UpdateSearch, LoadsFirstFileFoundAndTriesNoOther)
{
    const struct {
        std::vector<std::string> files;  // below mnt
        const char* version;             // null: nothing is found
        std::string damage;              // the end of the first file
    } rows[] = {
        {{}, nullptr, ""},
        {{"usb/csp_prog.hex", "usb/csp_prog.rlg"}, "usb/csp_prog.hex", ""},
        {{"usb/csp_prog.rlg", "cdrom/csp_prog.hex"}, "usb/csp_prog.rlg", ""},
        {{"cdrom/csp_prog.hex", "cdrom/csp_prog.rlg"}, "cdrom/csp_prog.hex", ""},
        {{"cdrom/csp_prog.rlg", "floppy/csp_prog.rlg"}, "cdrom/csp_prog.rlg", ""},
        {{"floppy/csp_prog.rlg", "floppy/csp_prog.hex"}, "floppy/csp_prog.rlg", ""},
        {{"usb/csp_prog.rlg", "cdrom/csp_prog.hex"}, nullptr, "\xDD\x01"},
        {{"usb/csp_prog.hex", "usb/csp_prog.rlg"}, nullptr, kOverlong},
    };
    ServerWithPeers scene;
    scene.Open();
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.files) + row.damage);
        const auto isPlain = [](const std::string& name) { return name.back() == 'x'; };
        const bool expands = !row.files.empty() && !isPlain(row.files[0]);
        scene.unit.Write(kExpandedFirmware, "older");
        for (const std::string& name : row.files)
            scene.unit.Write("mnt/" + name, (isPlain(name) ? Hex(name) : Packed(name)) +
                                                (name == row.files[0] ? row.damage : ""));
        const std::string entry =
            row.version == nullptr ? kNoFile : std::string(row.version) + "\n";

        EXPECT_EQ(scene.Ask(kFindUpdate), (row.version == nullptr ? "" : kHeader) + entry);

        EXPECT_EQ(scene.TakeLog(), entry);
        EXPECT_EQ(scene.unit.Read(kExpandedFirmware) != "older", expands);
        for (const std::string& name : row.files)
            scene.unit.Remove("mnt/" + name);
    }
}

TEST(UpdateSearch, ShowsParameterFileTimeInUtc)
{
    setenv("TZ", "JST-9", 1);
    ServerWithPeers scene;
    scene.Open();
    const utimbuf times = {1078477620, 1078477620};
    utime(scene.unit.Write(kParameterFile, Hex("")).c_str(), &times);

    EXPECT_EQ(scene.Ask(kFindParameters),
              "[ Parameter Back Up File ]\nCSP Parameter : (2004/3/5/09:07)\n");

    EXPECT_EQ(scene.TakeLog(), "CSP Parameter : (2004/3/5/09:07)\n");
}

TEST(UpdateSearch, ReplacesLinksWithWorkFiles)
{
    ServerWithPeers scene;
    scene.Open();
    const std::string planted = scene.unit.Write(kParameterFile, "parameters");
    std::filesystem::create_symlink(planted, scene.unit.Path("tmp/csp_prog.bin"));
    std::filesystem::create_symlink(scene.unit.Path("new"), scene.unit.Path(kExpandedFirmware));
    scene.unit.Write(kUsbCompressedFirmware, Packed("V4"));

    EXPECT_EQ(scene.Ask(kFindUpdate), std::string(kHeader) + "V4\n");

    EXPECT_EQ(scene.unit.Read(kParameterFile), "parameters");
    EXPECT_FALSE(scene.unit.Exists("new"));
}

// Which file an update writes depends on the last search and its result.
TEST(UpdateSearch, DecidesWhetherUpdateStarts)
{
    ServerWithPeers scene;
    scene.Open();
    EXPECT_EQ(scene.Ask(kUpdate), kNoUpdate);
    EXPECT_EQ(scene.Ask(kUpdateParameters), "Cannot execute Parameter Update.\n");

    scene.unit.Write(kUsbFirmware, Hex("V5"));
    scene.unit.Write(kParameterFile, kOverlong);
    EXPECT_EQ(scene.Ask(kFindUpdate), std::string(kHeader) + "V5\n");
    EXPECT_EQ(scene.Ask(kFindParameters), kNoParameters);
    EXPECT_EQ(scene.Ask(kUpdate), kNoUpdate) << "a file that can't be loaded leaves none";

    EXPECT_EQ(scene.Ask(kFindUpdate), std::string(kHeader) + "V5\n");
    scene.unit.Remove(kUsbFirmware);
    scene.unit.Remove(kParameterFile);
    EXPECT_EQ(scene.Ask(kFindUpdate), kNoFile);
    EXPECT_EQ(scene.Ask(kFindParameters), kNoParameters);
    scene.TakeLog();
    EXPECT_EQ(scene.Ask(kUpdateParameters).substr(0, 18), "Connecting to CSP\n");
    EXPECT_EQ(scene.TakeLog(), "Start CSP Parameter Update.\n");
}

// ---- the update

TEST(ServerUpdate, SucceedsWhileControllerInterferes)
{
    ServerWithPiano scene;
    const std::string firmware = FirmwareOf("V8", 0x1A000);
    scene.unit.Write(kUsbCompressedFirmware, PackedText(firmware));
    scene.Ask(kFindUpdate, "V8\n");
    const std::size_t before = scene.controller.Received().size();

    scene.Ask("DF DF 00 BB DF DF DF DF 90 3C 40 00 DF DF 00 AA", "Connecting to CSP\n");
    for (const char* percentage : {"30%", "46%", "76%"}) {
        EXPECT_TRUE(scene.controller.WaitFor(percentage));
        scene.controller.Send(Bytes("DF DF DF DF 90 3C 40 00 DF DF 00 C0 6C 01 02 03 DF DF 00 C3"));
    }
    EXPECT_TRUE(scene.controller.WaitFor("Rebooting CSP...\n"));

    const std::string texts = scene.controller.Received().substr(before);
    const std::size_t start = texts.rfind("Connecting to CSP\n");
    EXPECT_EQ(texts.substr(start, texts.find("Rebooting") - start),
              "Connecting to CSP\nSending Data 30%\nSending Data 38%\nSending Data 46%\n"
              "Sending Data 76%\nSending Data 84%\nSending Data 92%\nSending Data 100%\n"
              "CSP Update Success.\n");
    const std::string log = LogTexts(scene.unit);
    EXPECT_EQ(log.substr(log.rfind("Start")),
              "Start CSP Update.\nCSP Update Success.\nRebooting CSP...5sec\n");
    EXPECT_TRUE(scene.unit.Flash(kImageStart, firmware.size()) == firmware);
    const std::string wire = scene.unit.MidiLog();
    EXPECT_EQ(Count(wire.substr(0, wire.find("< console Finished")), "midi 80 6C"), 0U);
    EXPECT_EQ(Count(wire, "midi C0 90 3C 40 00"), 0U) << "only what came with the command";
    EXPECT_EQ(scene.piano.Kill(SIGTERM), 0) << scene.piano.Error();
}

TEST(ServerUpdate, ReportsResultOfFaultyPianoAndOpensGate)
{
    const struct {
        const char* faults;
        std::string end;  // of the texts
        std::size_t timeouts;
    } rows[] = {
        {"--ng-at 90042100", "%\nCSP Update Success.\n", 0},
        {"--fail 1", "%\nCSP Update Failed.\n", 0},
        {"--silent", "CSP is not connected.\nCSP Update Failed.\n", 8},
        {"--cut-link-every 3000", "CSP Update Failed.\n", 4},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.faults);
        ServerWithPiano scene;
        const std::string firmware = FirmwareOf("V6", 0x8000);
        scene.unit.Write(kUsbFirmware, HexText(firmware, 16, "\n"));
        scene.Ask(kFindUpdate, "V6\n");
        scene.SetFaults(row.faults);

        EXPECT_NE(scene.Ask(kUpdate, "Rebooting").find(row.end + "Rebooting"), std::string::npos);

        EXPECT_EQ(scene.unit.Flash(kImageStart, firmware.size()) == firmware,
                  row.end.find("Success") != std::string::npos);
        EXPECT_EQ(Count(scene.unit.Log(), "CSP Update status Inc.\n"), row.timeouts);
        scene.Ask(kVersion, kServiceText);
        scene.Ask(kUpdate, kNoUpdate);
        EXPECT_EQ(scene.unit.Log(kUpdateLog), "");
    }
}
