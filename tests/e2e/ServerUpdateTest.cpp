// Updates that the controller asks the server for: the search for a file, the start, the end.

#include <cstdlib>
#include <filesystem>
#include <string>

#include <utime.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kNoFile[] = "Update File is not exsit.\n";
constexpr char kNoParameters[] = "Parameter File is not exsit.\n";
constexpr char kNoUpdate[] = "Cannot Execute CSP Update.\n";
const std::string kHeader = " \n[ System version: Update File ]\n";

const std::string kOverlong = std::string(81, '0') + "\n";  // no line of an image

std::string Hex(const std::string& version)
{
    return HexText(Firmware(0x800, version), 32, "\r\n");
}

std::string Packed(const std::string& version)
{
    return PackedText(Firmware(0x800, version));
}

}  // namespace

// The version of each file is its own name.
TEST(UpdateSearch, LoadsFirstFileFoundAndTriesNoOther)
{
    const struct {
        Words files;              // below mnt
        bool isFound = true;      // the first one
        std::string damage = {};  // its end
    } rows[] = {
        {{"usb/csp_prog.hex", "usb/csp_prog.rlg"}},
        {{"usb/csp_prog.rlg", "cdrom/csp_prog.hex"}},
        {{"cdrom/csp_prog.hex", "cdrom/csp_prog.rlg"}},
        {{"cdrom/csp_prog.rlg", "floppy/csp_prog.rlg"}},
        {{"floppy/csp_prog.rlg", "floppy/csp_prog.hex"}},
        {{"usb/csp_prog.rlg", "cdrom/csp_prog.hex"}, false, "\xDD\x01"},
        {{"usb/csp_prog.hex", "usb/csp_prog.rlg"}, false, kOverlong},
    };
    Scene scene;
    scene.OpenWithPeers();
    for (const auto& [files, isFound, damage] : rows) {
        SCOPED_TRACE(testing::PrintToString(files) + damage);
        scene.Write(kExpandedFirmware, "older");
        for (const std::string& name : files)
            scene.Write("mnt/" + name, (name.back() == 'x' ? Hex(name) : Packed(name)) +
                                           (name == files[0] ? damage : ""));
        const std::string entry = isFound ? files[0] + "\n" : kNoFile;

        EXPECT_EQ(scene.Ask(kFindUpdate), (isFound ? kHeader : "") + entry);

        EXPECT_EQ(scene.TakeLog(), entry);
        EXPECT_EQ(scene.Read(kExpandedFirmware) == "older", files[0].back() == 'x');
        for (const std::string& name : files)
            scene.Remove("mnt/" + name);
    }
}

TEST(UpdateSearch, ShowsParameterFileTimeInUtc)
{
    setenv("TZ", "JST-9", 1);
    Scene scene;
    scene.OpenWithPeers();
    const utimbuf times = {1078477620, 1078477620};
    utime(scene.Write(kParameterFile, Hex("")).c_str(), &times);
    const std::string entry = "CSP Parameter : (2004/3/5/09:07)\n";

    EXPECT_EQ(scene.Ask(kFindParameters), "[ Parameter Back Up File ]\n" + entry);
    EXPECT_EQ(scene.TakeLog(), entry);
}

TEST(UpdateSearch, ReplacesLinksWithWorkFiles)
{
    Scene scene;
    scene.OpenWithPeers();
    const std::string planted = scene.Write(kParameterFile, "parameters");
    std::filesystem::create_symlink(planted, scene.Path("tmp/csp_prog.bin"));
    std::filesystem::create_symlink(scene.Path("new"), scene.Path(kExpandedFirmware));
    scene.Write(kUsbCompressedFirmware, Packed("V4"));

    EXPECT_EQ(scene.Ask(kFindUpdate), kHeader + "V4\n");

    EXPECT_EQ(scene.Read(kParameterFile), "parameters");
    EXPECT_FALSE(scene.Exists("new"));
}

// Which file an update writes depends on the last search and its result.
TEST(UpdateSearch, DecidesWhetherUpdateStarts)
{
    Scene scene;
    scene.OpenWithPeers();
    EXPECT_EQ(scene.Ask(kUpdate), kNoUpdate);
    EXPECT_EQ(scene.Ask(kUpdateParameters), "Cannot execute Parameter Update.\n");

    scene.Write(kUsbFirmware, Hex("V5"));
    scene.Write(kParameterFile, kOverlong);
    EXPECT_EQ(scene.Ask(kFindUpdate), kHeader + "V5\n");
    EXPECT_EQ(scene.Ask(kFindParameters), kNoParameters);
    EXPECT_EQ(scene.Ask(kUpdate), kNoUpdate) << "a file that can't be loaded leaves none";

    EXPECT_EQ(scene.Ask(kFindUpdate), kHeader + "V5\n");
    scene.Remove(kUsbFirmware);
    scene.Remove(kParameterFile);
    EXPECT_EQ(scene.Ask(kFindUpdate), kNoFile);
    EXPECT_EQ(scene.Ask(kFindParameters), kNoParameters);
    scene.TakeLog();
    EXPECT_EQ(scene.Ask(kUpdateParameters).substr(0, 18), "Connecting to CSP\n");
    EXPECT_EQ(scene.TakeLog(), "Start CSP Parameter Update.\n");
}

TEST(ServerUpdate, SucceedsWhileControllerInterferes)
{
    Scene scene;
    scene.OpenWithPiano();
    const std::string firmware = Firmware(0x1A000, "V8");
    scene.Write(kUsbCompressedFirmware, PackedText(firmware));
    scene.Ask(kFindUpdate, "V8\n");

    scene.Ask("DF DF 00 BB DF DF DF DF 90 3C 40 00 DF DF 00 AA", "Connecting to CSP\n");
    for (const char* percentage : {"30%", "46%", "76%"}) {
        EXPECT_TRUE(scene.controller->WaitFor(percentage));
        scene.Send("DF DF DF DF 90 3C 40 00 DF DF 00 C0 6C 01 02 03 DF DF 00 C3");
    }
    EXPECT_TRUE(scene.controller->WaitFor("100%\nCSP Update Success.\nRebooting CSP...\n"));

    std::string texts = scene.controller->Received();
    texts.erase(0, texts.rfind("Connecting"));
    EXPECT_EQ(texts.substr(0, texts.find("Rebooting")),
              "Connecting to CSP\nSending Data 30%\nSending Data 38%\nSending Data 46%\n"
              "Sending Data 76%\nSending Data 84%\nSending Data 92%\nSending Data 100%\n"
              "CSP Update Success.\n");
    const std::string log = scene.LogTexts();
    EXPECT_EQ(log.substr(log.rfind("Start")),
              "Start CSP Update.\nCSP Update Success.\nRebooting CSP...5sec\n");
    EXPECT_TRUE(scene.Flash(firmware.size()) == firmware);
    const std::string wire = scene.MidiLog();
    EXPECT_EQ(Count(wire.substr(0, wire.find("< console Finished")), "midi 80 6C"), 0U);
    EXPECT_EQ(Count(wire, "midi C0 90 3C 40 00"), 0U) << "only what came with the command";
    EXPECT_EQ(scene.piano->Kill(SIGTERM), 0) << scene.piano->Error();
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
        Scene scene;
        scene.OpenWithPiano();
        const std::string firmware = Firmware(0x8000, "V6");
        scene.Write(kUsbFirmware, HexText(firmware, 16, "\n"));
        scene.Ask(kFindUpdate, "V6\n");
        scene.SetFaults(row.faults);

        EXPECT_TRUE(Contains(scene.Ask(kUpdate, "Rebooting"), row.end + "Rebooting"));

        EXPECT_EQ(scene.Flash(firmware.size()) == firmware, Contains(row.end, "Success"));
        EXPECT_EQ(Count(scene.Log(), "CSP Update status Inc.\n"), row.timeouts);
        scene.Ask(kVersion, kServiceText);
        scene.Ask(kUpdate, kNoUpdate);
        EXPECT_EQ(scene.Log(kUpdateLog), "");
    }
}
