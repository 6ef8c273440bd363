// The stand-alone update with its peers present, late and absent, and with a piano that has faults.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Descriptor.h"
#include "HexText.h"
#include "Scene.h"

TEST(Update, LogsResultRenamesFileAndRestartsPiano)
{
    constexpr char kNoPatcher[] =
        "Open MIDI Patcher - NG1\nOpen MIDI Patcher - NG2\nOpen PciDsp - OK\nUpdate Error No.-3\n";
    const std::string ready =
        "Open MIDI Patcher - OK1\nOpen PciDsp - OK\nCSP Updater Initialize - OK\n";
    const std::string updated =
        "CSP Updater Initialize - OK\nStart CSP Update\nCSP Update Finished\n";
    const std::string done = "Open MIDI Patcher - OK1\nOpen PciDsp - OK\n" + updated;
    const std::string failed = ready + "Start CSP Update\nCSP Update Failed\nStart CSP Update\n";
    const char* const plain = "-f prog.hex";
    const char* const finished = "APE Update Finished\n";
    const char* const renamed = "APE Update Finished\nRename OK\n";
    const char* const kept = "APE Update Finished\nRename NG\n";
    const struct {
        const char* words;
        std::string faults;                 // of a call and of the piano
        const char* output;                 // a part of it
        std::string log;                    // from the version to the restart
        const char* name = "cwd/prog.hex";  // the file's last one
    } rows[] = {
        {plain, "--no-patcher", "Open i2c error\nError:-3\n", kNoPatcher},
        {plain, "write@i2c_server_sock:EPIPE --late 3", "Connect i2c error\nError:-3\n",
         kNoPatcher},
        {plain, "write@i2c_server_sock:EPIPE", "Connect i2c error2\nError:-3\n",
         "Open MIDI Patcher - NG1\nOpen PciDsp - OK\nUpdate Error No.-3\n"},
        {plain, "--late 3", finished,
         "Open MIDI Patcher - NG1\nOpen MIDI Patcher - OK2\nOpen PciDsp - OK\n" + updated},
        {plain, "ioctl@PciDsp:EIO", finished,
         "Open MIDI Patcher - OK1\nOpen PciDsp - NG\n" + updated},
        {plain, "--cut-frames 5 --no-status", finished, done},
        {plain, "--join --garbage 40 --ng-at 90042000 --ng-at 90050FFF", finished, done},
        {plain, "--fail 1", finished, failed + "CSP Update Finished\n"},
        {plain, "--fail 2", "CSP Update Failed\n", failed + "CSP Update Failed\n"},
        {plain, "--garbage-endless", "Error !\n", ready + "Piano Comunication Error !\n"},
        {plain, "--die-after 1", "connected 2\n", ready + "Piano is not connected 2\n"},
        {plain, "select@-#40:EINTR --silent", "Send WriteCommand\nSend WriteCommand\n",
         ready + "Piano is not connected 2\n"},
        {plain, "--cut-link-after 3000", "no reply\n",
         ready + "Start CSP Update\nPiano is no reply\n"},
        {"-a prog.hex -c", "", renamed, done + "Update File Renamed\n", "cwd/xV102.hex"},
        {"-b -f ../mnt/usb/prog.hex", "", renamed, done + "Update File Renamed\n",
         "mnt/usb/xV102.hex"},
        {"-b -f prog.hex", "rename@V102.hex:EACCES", kept, done + "Update File Rename Error\n"},
    };
    const std::string firmware = Firmware(0x11000, "../x\\V 1.02");
    const std::string image = HexText(firmware, 32, "\r\n");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words + (" " + row.faults));
        const bool restarts = !Contains(row.log, "Error No.");
        Unit unit(row.faults);
        unit.Write("cwd/prog.hex", image);
        unit.Write("mnt/usb/prog.hex", image);
        unit.Write("mnt/usb/xV102.hex", "older");
        unit.StartPiano();

        Process& program = unit.Run(Split(row.words));

        EXPECT_EQ(unit.AwaitEnd(program), 0);
        EXPECT_EQ(unit.LogTexts(kUpdateLog),
                  "CSP Updater Start Now.\nCSP File Version: ../x\\V 1.02\n" + row.log +
                      (restarts ? "Rebooting CSP...5sec\n" : ""));
        EXPECT_TRUE(Contains(program.Output(), row.output)) << program.Output();
        // The error is logged before the last wait. The unit's time begins at 22:13:20.
        const std::string second = std::to_string(15 + UnitTime() / std::chrono::seconds(1));
        EXPECT_TRUE(restarts || Contains(unit.Log(kUpdateLog), second + " - Update Error No.-3"));
        EXPECT_LE(UnitTime(), std::chrono::seconds(20 + Count(program.Output(), "Inc 1+")));
        EXPECT_TRUE(unit.Read(row.name) == image);
        EXPECT_EQ(unit.Flash(firmware.size()) == firmware,
                  Contains(row.log, "CSP Update Finished\n"));
        EXPECT_EQ(Count(unit.MidiLog(), " bad "), 0U) << unit.MidiLog();
        const std::string journal = unit.Journal();
        EXPECT_EQ(Count(journal, "\nusleep(500000)\n"), restarts ? 1U : 0U);
        EXPECT_EQ(Count(journal, "ioctl(/dev/PciDsp, 33, 0xc00) = 0\nsleep(5)\n"
                                 "ioctl(/dev/PciDsp, 33, 0xc01) = 0\nexit descriptors=0\n"),
                  restarts ? 1U : 0U);
    }
}

// Closed from the start, its number would be that of the first link, and the piano would get the
// texts. Closed midway, it would end the program by a signal.
TEST(Update, SucceedsWithoutStandardOutput)
{
    std::signal(SIGPIPE, SIG_DFL);  // whatever this program was started with
    for (const bool fromTheStart : {true, false}) {
        SCOPED_TRACE(fromTheStart);
        Unit unit;
        const std::string firmware = Firmware(0x4000, "V1");
        unit.Write("cwd/prog.hex", HexText(firmware, 32, "\r\n"));
        Process& piano = unit.StartPiano();
        const std::string pipe = unit.Path("sim/output");
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        Descriptor reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        unit.SetOutput(fromTheStart ? "" : pipe);

        Process& program = unit.Start("diag_server", {"-f", "prog.hex"});
        EXPECT_TRUE(unit.WaitForJournal("usleep(500000)"));
        char first = 0;
        EXPECT_EQ(read(reader.Get(), &first, 1), fromTheStart ? 0 : 1) << "texts leave at once";
        const std::string error = "/proc/" + std::to_string(program.Id()) + "/fd/2";
        EXPECT_EQ(std::filesystem::read_symlink(error) == "/dev/null", fromTheStart);
        reader.Close();

        EXPECT_EQ(unit.AwaitEnd(program), 0);
        EXPECT_EQ(Count(unit.LogTexts(kUpdateLog), "CSP Update Finished\n"), 1U);
        EXPECT_EQ(piano.Kill(SIGTERM), 0) << piano.Error();
        EXPECT_TRUE(unit.Flash(firmware.size()) == firmware);
    }
}
