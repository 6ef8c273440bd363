#include <csignal>
#include <functional>
#include <vector>

#include "FaultyServer.h"
#include "HexText.h"
#include "Scenario.h"

namespace {

using Reply = FaultyServer::Reply;
using Body = std::function<std::string(FaultyServer&)>;

constexpr char kParameterFile[] = "usr/local/lib/diag/csp_param.hex";

std::string WithServer(FaultyUnit& unit, const Unit::Words& pianoOptions, const Body& body)
{
    FaultyServer server(unit, pianoOptions);
    return server.End(server.LacksPatcher() ? "ended without the MIDI Patcher" : body(server));
}

// The lines are in the log, in this order, unless the fault has hit the log itself.
void CheckLogged(const FaultyUnit& unit, std::initializer_list<const char*> lines)
{
    const std::string log = unit.Log();
    std::size_t at = 0;
    for (const std::string line : lines) {
        at = log.find(line + "\n", at);
        Check(at != std::string::npos || unit.IsHit({kServerLog}), "the log lacks: " + line);
        if (at == std::string::npos)
            return;
    }
}

std::string StartWithoutPiano(FaultyUnit& unit)
{
    unit.CheckEnd(unit.StartServer());
    CheckLogged(unit, {"Diag Server Start Now.", "MIDI Patcher is not active.",
                       "RC Server is not active."});
    Check(!Contains(unit.Log(), "Initialize OK"), "a start without a piano is reported as good");
    return "ended by itself";
}

// A start with a piano whose flash ends at `stop`.
std::string ReadUpTo(FaultyUnit& unit, const std::string& stop, std::size_t size)
{
    constexpr char kFile[] = "cwd/csp_param.hex";
    const std::string flash = Firmware(size);
    const std::string load = unit.Write("sim/flash", flash) + "@90040000";
    const Unit::Words options = {"--join", "--read-cut", "8", "--load", load, "--read-stop", stop};
    return WithServer(unit, options, [&](FaultyServer& server) -> std::string {
        CheckLogged(unit, {"Diag Server Start Now.", "MIDI Patcher is active.",
                           "RC Server is active.", "Diag Server Initialize OK"});
        if (server.IsRunning()) {
            CheckLogged(unit, {"CSP Read Failed."});
            Check(unit.IsHit({kMidiLink}), "a read-back fails for no reason");
            Check(!unit.Exists(kFile), "a read-back that failed leaves a file");
            return "failed and reported";
        }
        CheckLogged(unit, {"CSP Read Success."});
        if (unit.Read(kFile) == HexText(flash, 8, "\r\n"))
            return "saved, file equal";
        if (unit.IsHit({"csp_param.hex"}, "open"))
            return "read, file not made";
        Check(unit.IsHit({"csp_param.hex"}, "fwrite"), "the file is wrong");
        return "read, file cut by a full disk";
    });
}

// Firmware with the version 1.2 in it: few rows, and yet four blocks, one of which ends at 64 KiB.
struct UpdateImage {
    std::string hex;
    std::string flash = std::string(0x20000, '\xFF');

    UpdateImage()
    {
        constexpr std::size_t kRows[] = {0x0000, 0x0400,  0x1FF0,  0x3FF0,
                                         0xFFF0, 0x10000, 0x11FF0, 0x12000};
        for (const std::size_t at : kRows) {
            std::string row = at == 0x0400 ? std::string("1.2\0", 4) : "";
            row += Firmware(64 + at / 0x400).substr(at / 0x400, 16 - row.size());
            if (at % 0x10000 == 0)
                hex += at == 0 ? ":02000004900466\r\n" : ":02000004900565\r\n";
            hex += Record(0, at % 0x10000, row) + "\r\n";
            flash.replace(at, row.size(), row);
        }
        hex += ":00000001FF\r\n";
    }
};

void CheckFlash(const FaultyUnit& unit, Process& piano, const UpdateImage& firmware)
{
    piano.Kill(SIGTERM);
    Check(unit.Flash(0x90040000, firmware.flash.size()) == firmware.flash,
          "finished with a wrong flash");
}

std::string LogEntries(int from)
{
    std::string entries;
    for (int i = from; i < 60; ++i)
        entries += "06/03/14/09:05:07 - old entry " + std::to_string(i) + "\n";
    return entries;
}

// Of the old log the last 50 entries are kept and the line is added, unless the fault has hit it.
std::string LogOutcome(const FaultyUnit& unit, const std::string& line)
{
    const std::string log = unit.Log("cspupdate.log");
    const bool isKept =
        log.rfind(LogEntries(10), 0) == 0 && Contains(log, "CSP Updater Start Now.\n");
    if (isKept && Contains(log, " - " + line))
        return "";
    Check(unit.IsHit({"cspupdate.log"}), isKept ? "the log lacks: " + line : "the old log is lost");
    return ", log hurt";
}

// How a failed update shows on standard output and in the log. Only the first has its cause in the
// file, and isn't logged.
constexpr const char* kFailures[][2] = {
    {"No Update File!\n", "CSP Updater Start Now.\n"},
    {"Error:-3\n", "Update Error No.-3\n"},
    {"Piano is not connected 2\n", "Piano is not connected 2\n"},
    {"Piano is no reply\n", "Piano is no reply\n"},
    {"Piano Comunication Error !\n", "Piano Comunication Error !\n"},
    {"CSP Update Failed\n", "CSP Update Failed\n"},
};

std::string FailedUpdateOutcome(const FaultyUnit& unit, const std::string& printed)
{
    for (const auto& [onOutput, onLog] : kFailures) {
        if (!Contains(printed, onOutput))
            continue;
        const bool isUnread = onOutput == kFailures[0][0];
        Check(unit.IsHit({isUnread ? "fw.hex" : kMidiLink}), "an update fails for no reason");
        return "failed and reported" + LogOutcome(unit, onLog);
    }
    Check(false, "neither finished nor failed");
    return "";
}

std::string StandAloneUpdate(FaultyUnit& unit)
{
    const UpdateImage firmware;
    unit.Write("cwd/fw.hex", firmware.hex);
    unit.Write("usr/local/lib/diag/cspupdate.log", LogEntries(0));
    Process& piano = unit.StartFaultyPiano({"--allow-gaps"});
    Process& program = unit.Start("diag_server", {"-b", "-f", "fw.hex"});
    unit.CheckEnd(program);
    const std::string printed = program.Output();
    // The file has its new name, after the version in it, when that is reported, else its old one.
    const bool isRenamed = Contains(printed, "Rename OK\n");
    Check(unit.Read(isRenamed ? "cwd/12.hex" : "cwd/fw.hex") == firmware.hex, "the file is lost");
    Check(!unit.Exists(isRenamed ? "cwd/fw.hex" : "cwd/12.hex"), "the file has two names");
    if (!Contains(printed, "APE Update Finished\n")) {
        piano.Kill(SIGTERM);
        return FailedUpdateOutcome(unit, printed);
    }
    CheckFlash(unit, piano, firmware);
    Check(isRenamed || (Contains(printed, "Rename NG\n") && unit.IsHit({"fw.hex"}, "rename")),
          "the file isn't renamed");
    return "finished, flash equal" + LogOutcome(unit, "CSP Update Finished\n");
}

std::string ServerUpdate(FaultyUnit& unit)
{
    constexpr char kSuccess[] = "CSP Update Success.\n";
    constexpr char kFailure[] = "CSP Update Failed.\n";
    constexpr char kRefusal[] = "Cannot Execute CSP Update.\n";
    const UpdateImage firmware;
    unit.Write("medium/csp_prog.hex", firmware.hex);
    unit.Mount("usb");
    return WithServer(unit, FaultyServer::kFailingRead, [&](FaultyServer& server) -> std::string {
        server.Ask("DF DF 00 AA");
        const Reply reply = server.Ask("DF DF 00 BB", {kSuccess, kFailure, kRefusal});
        if (reply.Has(kSuccess)) {
            server.CheckReported(reply, kSuccess);
            CheckFlash(unit, server.piano, firmware);
            return "finished, flash equal";
        }
        if (reply.Has(kFailure)) {
            server.CheckReported(reply, kFailure);
            // A piano that is off stays silent.
            Check(unit.IsHit({kMidiLink, "PciDsp"}), "an update fails for no reason");
            return "failed and reported";
        }
        Check(unit.IsHit({"csp_prog.hex", kController}), "the file isn't found");
        return reply.Has(kRefusal) ? "not found, refused" : "command lost";
    });
}

// What is lost of a sequence that must all get through but for the fault.
struct Losses {
    const FaultyUnit& unit;
    std::string text;
    int count = 0;

    void Expect(bool hasCome, const std::string& what, std::initializer_list<const char*> ways)
    {
        if (hasCome)
            return;
        Check(unit.IsHit(ways), what + " is lost for no reason");
        text += (text.empty() ? "lost " : " and ") + what;
        ++count;
    }
    std::string Outcome(const std::string& otherwise) const
    {
        return text.empty() ? otherwise : text;
    }
};

std::string Bridge(FaultyUnit& unit)
{
    return WithServer(unit, FaultyServer::kFailingRead, [&](FaultyServer& server) {
        Losses losses{unit, "", 0};
        const Reply version = server.Ask("90 3C 40 00 6C 01 02 03 DF DF DF DF");
        losses.Expect(Contains(version.received, "KVT : Update the Service Center.\n"), "an answer",
                      {kController});
        losses.Expect(Contains(unit.MidiLog(), "> midi C0 90 3C 40 00\n") &&
                          Contains(unit.MidiLog(), "> midi 80 6C 01 02 03\n"),
                      "a group", {kController, kMidiLink});
        const Reply release = server.Ask("DF DF DF E0 DF DF DF DF");
        losses.Expect(Contains(release.received, "1.00\n"), "the release",
                      {kController, "KVT-release"});

        constexpr char kBox[] = "<message_box a>\r\n";
        const std::string received = server.Say("<message_box a>\nhello\n");
        const std::string shown = unit.Read("sim/rc.log");
        losses.Expect(Contains(received, "hello\r\n"), "a line", {kController, kMidiLink});
        // A box that isn't shown goes to the controller, but what was cut short counts as shown.
        const bool isPassedOn = Contains(received, kBox);
        Check(!isPassedOn || unit.IsHit({kRcLink}), "a box goes to the controller for no reason");
        const bool isCut = !shown.empty() && shown != kBox && unit.IsHit({kRcLink}, "write");
        losses.Expect(shown == kBox || isPassedOn || isCut, "a message box", {kMidiLink});
        if (isCut)
            return losses.Outcome("carried, a box cut");
        return losses.Outcome(isPassedOn ? "carried, a box to the controller" : "carried");
    });
}

// Bytes with a long run, a short one and the escape byte, and their compressed form; the rest has
// neither runs nor escapes.
struct Parameters {
    std::string bytes = "abccccc\xDD\xDD"
                        "d\xDD";
    std::string packed = "\x04\x90"
                         "ab\xDD"
                         "c\x05\xDD\xDD\x02"
                         "d\xDD\xDD\x01";
    std::string hex;

    explicit Parameters(std::size_t size)
    {
        constexpr std::size_t kPeriod = 0xDD;
        for (std::size_t i = 0; bytes.size() < size; ++i) {
            bytes += static_cast<char>(i % kPeriod);
            packed += static_cast<char>(i % kPeriod);
        }
        hex = HexText(bytes, 32, "\r\n");
    }
};
constexpr std::size_t kSmall = 64;
constexpr std::size_t kLarge = 0x10020;  // a record past the first 64 KiB

// Firmware is looked for here, in this order; packed files are expanded to the unit's disk.
constexpr const char* kSources[] = {"mnt/usb/csp_prog.hex", "mnt/usb/csp_prog.rlg",
                                    "mnt/cdrom/csp_prog.hex", "mnt/cdrom/csp_prog.rlg",
                                    "mnt/floppy/csp_prog.rlg"};

std::string Search(FaultyUnit& unit)
{
    return WithServer(unit, FaultyServer::kFailingRead, [&](FaultyServer& server) {
        Losses losses{unit, "", 0};
        const Parameters parameters(kSmall);
        for (const char* source : kSources) {
            const bool isPacked = Contains(source, ".rlg");
            unit.Write(source, isPacked ? parameters.packed : UpdateImage().hex);
            unit.Write("tmp/csp_prog.hex", "an older one");
            const Reply found = server.Ask("DF DF 00 AA");
            unit.Remove(source);
            // Without a version in it, a packed file is answered with an empty line.
            const bool isFound =
                Contains(found.received, isPacked ? "Update File ]\n\n" : "Update File ]\n1.2\n");
            losses.Expect(isFound, "a file", {"csp_prog", kController});
            Check(!isFound || !isPacked || unit.Read("tmp/csp_prog.hex") == parameters.hex,
                  "another file was expanded");
        }
        const Reply none = server.Ask("DF DF 00 AA");
        losses.Expect(Contains(none.received, "Update File is not exsit.\n"), "an answer",
                      {kController});
        unit.Write(kParameterFile, parameters.hex);
        const Reply shown = server.Ask("DF DF 00 C1");
        losses.Expect(Contains(shown.received, "CSP Parameter : "), "the parameter file",
                      {"csp_param.hex", kController});
        Check(losses.count <= 1, "one fault has cost more than one answer");
        return losses.Outcome("found");
    });
}

// What a copy reports, and what the fault must have hit then: anything or nothing by an empty text.
struct CopyResult {
    const char* text;
    const char* kind;
    const char* subject;
};
constexpr CopyResult kCopyResults[] = {
    {"Copy Success.\n", "", ""},
    {"Parameter file is not exists.\n", "", "csp_param"},
    {"Binary file error.\n", "", "csp_param"},
    {"Copy error.\n", "mount", "/mnt"},
    {"Copy error.\n", "", "csp_param"},
    {"Floppy in not inserted.\n", "umount", "/mnt"},
};

// Carries a copy command out. The reported text, empty when the command was lost.
std::string Copy(const FaultyUnit& unit, FaultyServer& server, const char* command)
{
    const Reply reply = server.Ask(command);
    for (const CopyResult& result : kCopyResults) {
        if (!reply.Has(result.text) || !unit.IsHit({result.subject}, result.kind))
            continue;
        server.CheckReported(reply, result.text);
        return result.text;
    }
    Check(unit.IsHit({kController}) && reply.received.empty(),
          "no result, or refused for no reason");
    return "";
}

std::string Backup(FaultyUnit& unit)
{
    constexpr char kCopy[] = "medium/csp_param.rlg";
    const Parameters parameters(kSmall);
    unit.Write(kParameterFile, parameters.hex);
    unit.Write(kCopy, "old");
    unit.Mount("usb");
    return WithServer(unit, FaultyServer::kFailingRead, [&](FaultyServer& server) -> std::string {
        const std::string text = Copy(unit, server, "DF DF 00 C3");
        const std::string copy = unit.Read(kCopy);
        Check(unit.Read(kParameterFile) == parameters.hex, "the parameter file has changed");
        if (text == "Copy Success.\n") {
            // Stdio shows a failed read as the end of the file.
            const bool isCut =
                unit.IsHit({"csp_param.hex"}, "fread") && copy.size() < parameters.packed.size();
            Check(copy == parameters.packed || isCut, "something else was copied");
            return copy == parameters.packed ? "copied" : "copied, cut by a read error";
        }
        if (text == "Copy error.\n" && !unit.IsHit({"/mnt"}, "mount"))
            return "failed and reported";
        Check(copy == "old", "the old copy is gone");
        return text.empty() ? "command lost" : "refused, old copy kept";
    });
}

std::string Restore(FaultyUnit& unit, std::size_t size)
{
    const Parameters parameters(size);
    const std::string old = HexText(Firmware(0x20), 32, "\r\n");
    unit.Write(kParameterFile, old);
    unit.Write("medium/csp_param.rlg", parameters.packed);
    unit.Mount("floppy");
    return WithServer(unit, FaultyServer::kFailingRead, [&](FaultyServer& server) -> std::string {
        const std::string text = Copy(unit, server, "DF DF 00 C4");
        const std::string file = unit.Read(kParameterFile);
        if (text == "Copy Success.\n") {
            Check(file == parameters.hex, "something else was copied");
            return "copied, file equal";
        }
        // The file is written in place, so what stops the last step leaves it cut.
        Check(file == old || unit.IsHit({"csp_param.hex"}, "write") ||
                  unit.IsHit({"csp_param.bin"}, "read"),
              "the old file is gone for no reason");
        if (text.empty())
            return "command lost";
        return file == old ? "failed and reported, old file kept" : "failed and reported, file cut";
    });
}

}  // namespace

const std::vector<Scenario> kScenarios = {
    {"start without a piano", StartWithoutPiano},
    {"start-up", [](FaultyUnit& unit) { return ReadUpTo(unit, "90040018", 0x18); }, kAllFrames},
    {"read-back", [](FaultyUnit& unit) { return ReadUpTo(unit, "90042010", 0x2010); }, kAllFrames},
    // The last frames are those of the 64 KiB border and of the last block.
    {"read-back over 64 KiB", [](FaultyUnit& unit) { return ReadUpTo(unit, "90050010", 0x10010); },
     60},
    {"stand-alone update", StandAloneUpdate, kAllFrames},
    {"server update", ServerUpdate, kAllFrames},
    {"bridge", Bridge},
    {"search", Search},
    {"backup", Backup},
    {"restore", [](FaultyUnit& unit) { return Restore(unit, kSmall); }},
    {"restore over 64 KiB", [](FaultyUnit& unit) { return Restore(unit, kLarge); }},
};
