
#include "FaultyUnit.h"
#include "HexText.h"

namespace {

void ReadBack(FaultyUnit& unit)
{
    constexpr char kFile[] = "cwd/csp_param.hex";
    constexpr char kSuccess[] = "CSP Read Success.\n";
    constexpr char kFailure[] = "CSP Read Failed.\n";
    unit.ExpectLog({"Diag Server Start Now.", "MIDI Patcher is active.", "RC Server is active.",
                    "Diag Server Initialize OK"});
    // The server ends only after a success.
    if (unit.Judge({unit.IsServing() ? kFailure : kSuccess, unit.Log()},
                   {{kSuccess, {}}, {kFailure, {kMidiLink}}}))
        unit.ExpectReadBack(kFile);
    else
        Check(!unit.Exists(kFile), "a read-back that failed leaves a file");
}

// Firmware with the version 1.2: few rows, but four blocks, one of which ends at 64 KiB.
struct UpdateImage {
    std::string hex;
    std::string flash = std::string(0x20000, '\xFF');

    // A strict run wants an address record before each gap.
    explicit UpdateImage(bool isStrict = false)
    {
        constexpr std::size_t kRows[] = {0,      0x400,   0x1FF0,  0x3FF0,
                                         0xFFF0, 0x10000, 0x11FF0, 0x12000};
        const std::string image = Firmware(0x12010, "1.2");
        for (const std::size_t at : kRows) {
            const std::string row = image.substr(at, 16);
            if (isStrict || at % 0x10000 == 0)
                hex += at < 0x10000 ? ":02000004900466\r\n" : ":02000004900565\r\n";
            hex += Record(0, at % 0x10000, row) + "\r\n";
            flash.replace(at, row.size(), row);
        }
        hex += ":00000001FF\r\n";
    }
};

void CheckFlash(const FaultyUnit& unit)
{
    const std::string flash = UpdateImage().flash;
    Check(unit.Flash(flash.size()) == flash, "finished with a wrong flash");
}

std::string LogEntries(int from)
{
    std::string entries;
    for (int i = from; i < 60; ++i)
        entries += "06/03/14/09:05:07 - old entry " + std::to_string(i) + "\n";
    return entries;
}

void UpdateAlone(FaultyUnit& unit)
{
    const std::string hex = UpdateImage().hex;
    unit.Write("cwd/fw.hex", hex);
    unit.Write(kUpdateLog, LogEntries(0));
    Process& piano = unit.StartPiano({"--allow-gaps"});
    Process& program = unit.Start("diag_server", {"-b", "-f", "fw.hex"});
    unit.CheckEnd(program);
    piano.Kill(SIGTERM);
    const Reply reply{program.Output(), unit.Log(kUpdateLog)};
    // The file has its new name, made from its version, when that is reported; else its old one.
    const bool isRenamed = Contains(reply.shown, "Rename OK\n");
    Check(unit.Read(isRenamed ? "cwd/12.hex" : "cwd/fw.hex") == hex, "the file is lost");
    Check(!unit.Exists(isRenamed ? "cwd/fw.hex" : "cwd/12.hex"), "the file has two names");
    // Only the first failure is caused by the file, and isn't logged.
    if (unit.Judge(reply, {{"APE Update Finished\n", {}, " - CSP Update Finished\n"},
                           {"No Update File!\n", {"fw.hex"}, " - CSP Updater Start Now.\n"},
                           {"Error:-3\n", {kMidiLink}, " - Update Error No.-3\n"},
                           {"Piano is not connected 2\n", {kMidiLink}},
                           {"Piano is no reply\n", {kMidiLink}},
                           {"Piano Comunication Error !\n", {kMidiLink}},
                           {"CSP Update Failed\n", {kMidiLink}}})) {
        CheckFlash(unit);
        unit.Expect(isRenamed, "the file is renamed", {"rename fw.hex"});
    }
    unit.Expect(reply.logged.rfind(LogEntries(10), 0) == 0 &&
                    Contains(reply.logged, "CSP Updater Start Now.\n"),
                "the last 50 entries are kept", {kLogs});
}

void UpdateStrictly(FaultyUnit& unit)
{
    const std::string hex = UpdateImage(true).hex;
    unit.Write("cwd/fw.hex", hex);
    Process& piano = unit.StartPiano({"--allow-gaps"});
    Process& program = unit.Start("diag_server", {"--strict", "-b", "-f", "fw.hex"});
    const bool hasSucceeded = unit.CheckEnd(program, true);
    piano.Kill(SIGTERM);
    Check((unit.Read("cwd/12.hex") == hex) != (unit.Read("cwd/fw.hex") == hex), "the file is lost");
    if (hasSucceeded)
        CheckFlash(unit);
}

void UpdateFromMedium(FaultyUnit& unit)
{
    unit.Write("medium/csp_prog.hex", UpdateImage().hex);
    unit.Mount("usb");
    unit.Try(kFindUpdate);
    // A piano that is off is silent. Without a file the command is refused.
    if (unit.Judge(unit.Try(kUpdate, std::chrono::seconds(600)),
                   {{"CSP Update Success.\n", {}},
                    {"CSP Update Failed.\n", {kMidiLink, "PciDsp"}},
                    {"Cannot Execute CSP Update.\n", {"csp_prog.hex", kController}}})) {
        unit.piano->Kill(SIGTERM);
        CheckFlash(unit);
    }
}

void Bridge(FaultyUnit& unit)
{
    const std::string version = unit.Try("90 3C 40 00 6C 01 02 03 DF DF DF DF").shown;
    unit.Expect(Contains(version, kServiceText), "an answer", {kController});
    unit.Expect(Contains(unit.MidiLog(), "> midi C0 90 3C 40 00\n") &&
                    Contains(unit.MidiLog(), "> midi 80 6C 01 02 03\n"),
                "every group", {kController, kMidiLink});
    const std::string release = unit.Try("DF DF DF E0 DF DF DF DF").shown;
    unit.Expect(Contains(release, "1.00\n"), "the release", {kController, "KVT-release"});

    constexpr char kBox[] = "<message_box a>\r\n";
    unit.Control("say", "<message_box a>\nhello");
    const std::string received = unit.Try("").shown;
    const std::string shown = unit.Read("sim/rc.log");
    unit.Expect(Contains(received, "hello\r\n"), "a line", {kController, kMidiLink});
    // A box that isn't shown goes to the controller, but one cut short counts as shown.
    unit.Expect(Contains(received, kBox) != (shown == kBox), "one message box",
                {kMidiLink, "write rcseq_socket"});
    unit.Expect(!Contains(received, kBox), "a box goes to the RC Server", {kRcLink});
}

// The packed form of a long run, a short run, the escape byte and other bytes, and its hex file.
const std::string kRest = "Other bytes of which none is the same as the one here";
const std::string kPacked = Bytes("04 90 61 62 DD 63 05 DD DD 02 64 DD DD 01") + kRest;
const std::string kParameterHex =
    HexText(Bytes("61 62 63 63 63 63 63 DD DD 64 DD") + kRest, 32, "\r\n");

// Where firmware is searched, in this order; packed files are expanded to the unit's disk.
constexpr const char* kSources[] = {kUsbFirmware, kUsbCompressedFirmware, kCdFirmware,
                                    kCdCompressedFirmware, kFloppyCompressedFirmware};

void Search(FaultyUnit& unit)
{
    for (const char* source : kSources) {
        const bool isPacked = Contains(source, ".rlg");
        unit.Write(source, isPacked ? kPacked : UpdateImage().hex);
        unit.Write(kExpandedFirmware, "an older one");
        // The packed file has no version, so the answer has an empty line.
        const bool isFound = Contains(unit.Try(kFindUpdate).shown,
                                      isPacked ? "Update File ]\n\n" : "Update File ]\n1.2\n");
        unit.Remove(source);
        unit.Expect(isFound, "a file is found", {"csp_prog", kController});
        Check(!isFound || !isPacked || unit.Read(kExpandedFirmware) == kParameterHex,
              "another file was expanded");
    }
    unit.Expect(Contains(unit.Try(kFindUpdate).shown, "Update File is not exsit.\n"),
                "no file is found", {kController});
    unit.Write(kParameterFile, kParameterHex);
    unit.Expect(Contains(unit.Try(kFindParameters).shown, "CSP Parameter : "),
                "the parameter file is found", {"csp_param.hex", kController});
    Check(unit.Lost() <= 1, "one fault has cost more than one answer");
}

const std::vector<Result> kCopyResults = {
    {"Copy Success.\n", {}},
    {"Parameter file is not exists.\n", {"csp_param"}},
    {"Binary file error.\n", {"csp_param"}},
    {"Floppy in not inserted.\n", {"umount /mnt"}},
    {"Copy error.\n", {"mount /mnt", "csp_param"}},
};

void Backup(FaultyUnit& unit)
{
    constexpr char kCopy[] = "medium/csp_param.rlg";
    unit.Write(kParameterFile, kParameterHex);
    unit.Write(kCopy, "old");
    unit.Mount("usb");
    const Reply reply = unit.Try(kBackup);
    const bool isCopied = unit.Judge(reply, kCopyResults);
    const std::string copy = unit.Read(kCopy);
    Check(unit.Read(kParameterFile) == kParameterHex, "the parameter file has changed");
    // Stdio shows a failed read as the end of the file.
    if (isCopied)
        unit.Expect(copy == kPacked, "the copy is complete", {"fread csp_param.hex"});
    else if (!Contains(reply.shown, "Copy error.\n") || unit.IsHit({"mount /mnt"}))
        Check(copy == "old", "the old copy is gone");
}

void Restore(FaultyUnit& unit)
{
    const std::string old = HexText(Firmware(0x20), 32, "\r\n");
    unit.Write(kParameterFile, old);
    unit.Write("medium/csp_param.rlg", kPacked);
    unit.Mount("floppy");
    const bool isCopied = unit.Judge(unit.Try(kRestore), kCopyResults);
    // The file is written in place, so a failure of the last step leaves it cut.
    Check(unit.Read(kParameterFile) == (isCopied ? kParameterHex : old) ||
              (!isCopied && unit.IsHit({"write csp_param.hex", "read csp_param.bin"})),
          "the file is neither the new one nor the old one");
}

}  // namespace

std::vector<Scenario> DefaultScenarios()
{
    return {
        {"start-up", kAllFrames, 0x18, ReadBack},
        {"read-back", kAllFrames, 0x2010, ReadBack},
        // The last frames are those around the 64 KiB boundary and of the last block.
        {"read-back over 64 KiB", 60, 0x10010, ReadBack},
        {"stand-alone update", kAllFrames, kNoServer, UpdateAlone},
        {"strict update", kAllFrames, kNoServer, UpdateStrictly},
        {"server update", kAllFrames, kFailingRead, UpdateFromMedium},
        {"bridge", 0, kFailingRead, Bridge},
        {"search", 0, kFailingRead, Search},
        {"backup", 0, kFailingRead, Backup},
        {"restore", 0, kFailingRead, Restore},
    };
}
