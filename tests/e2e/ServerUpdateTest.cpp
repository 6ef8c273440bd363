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

// The version of each file is its own name. What is expanded replaces a link, not its target.
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
    const std::string planted = scene.Write(kParameterFile, "planted");
    for (const auto& [files, isFound, damage] : rows) {
        SCOPED_TRACE(testing::PrintToString(files) + damage);
        for (const char* work : {"tmp/csp_prog.bin", kExpandedFirmware}) {
            scene.Remove(work);
            std::filesystem::create_symlink(planted, scene.Path(work));
        }
        for (const std::string& name : files)
            scene.Write("mnt/" + name, (name.back() == 'x' ? Hex(name) : Packed(name)) +
                                           (name == files[0] ? damage : ""));
        const std::string entry = isFound ? files[0] + "\n" : kNoFile;

        EXPECT_EQ(scene.Exchange(kFindUpdate), (isFound ? kHeader : "") + entry + entry);

        EXPECT_EQ(scene.Read(kExpandedFirmware) == "planted", files[0].back() == 'x');
        EXPECT_EQ(scene.Read(kParameterFile), "planted");
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
    EXPECT_EQ(scene.Exchange(kFindParameters), "[ Parameter Back Up File ]\n" + entry + entry);
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

TEST(ServerUpdate, ReportsProgressAndResultWhileControllerInterferes)
{
    const struct {
        const char* faults;
        std::string end;  // of the texts
        std::size_t timeouts;
    } rows[] = {
        {"--join",
         "Connecting to CSP\nSending Data 30%\nSending Data 38%\nSending Data 46%\n"
         "Sending Data 76%\nSending Data 84%\nSending Data 92%\nSending Data 100%\n"
         "CSP Update Success.\n",
         0},
        {"--ng-at 90042100", "%\nCSP Update Success.\n", 0},
        {"--fail 1", "%\nCSP Update Failed.\n", 0},
        {"--silent", "CSP is not connected.\nCSP Update Failed.\n", 8},
        {"--cut-link-every 3000", "CSP Update Failed.\n", 4},
    };
    for (const auto& [faults, end, timeouts] : rows) {
        SCOPED_TRACE(faults);
        Scene scene;
        scene.OpenWithPiano();
        const std::string firmware = Firmware(0x1A000, "V8");
        scene.Write(kUsbCompressedFirmware, PackedText(firmware));
        scene.Ask(kFindUpdate, "V8\n");
        scene.SetFaults(faults);

        // Nothing that comes with the command or later reaches the server or the piano.
        scene.Ask("DF DF 00 BB DF DF DF DF 90 3C 40 00 DF DF 00 AA", "Connecting to CSP\n");
        EXPECT_TRUE(WaitUntil([&, left = 3]() mutable {
            if (Contains(scene.controller->Received(), end + "Rebooting CSP...\n"))
                return true;
            if (left-- > 0)
                scene.Send("DF DF DF DF 90 3C 40 00 DF DF 00 C0 6C 01 02 03 DF DF 00 C3");
            return false;
        }));

        const bool hasSucceeded = Contains(end, "Success");
        EXPECT_EQ(scene.Flash(firmware.size()) == firmware, hasSucceeded);
        const std::string log = scene.LogTexts();
        EXPECT_EQ(Count(log, "CSP Update status Inc.\n"), timeouts);
        EXPECT_EQ(Count(log, "Start CSP Update.\n"), 1U);
        EXPECT_EQ(log.substr(log.rfind("CSP Update")), std::string("CSP Update ") +
                                                           (hasSucceeded ? "Success" : "Failed") +
                                                           ".\nRebooting CSP...5sec\n");
        EXPECT_EQ(Count(scene.MidiLog(), "midi C0 90 3C") + Count(scene.MidiLog(), "midi 80 6C"),
                  0U);
        scene.Ask(kVersion, kServiceText);
        scene.Ask(kUpdate, kNoUpdate);
        EXPECT_EQ(scene.Log(kUpdateLog), "");
        EXPECT_EQ(scene.piano->Kill(SIGTERM), 0) << scene.piano->Error();
    }
}
