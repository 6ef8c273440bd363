// The two kinds of update. A short write counts as sent and a lost one as silence, so an update may
// end either way when the fault has hit its link; what it says must be true.

#include <csignal>

#include "Image.h"
#include "Road.h"
#include "Server.h"

namespace {

constexpr char kUpdateFile[] = "cwd/fw.hex";
constexpr char kRenamedFile[] = "cwd/12.hex";  // after the version in it
constexpr char kLogFile[] = "usr/local/lib/diag/cspupdate.log";
constexpr int kOldEntries = 60;
constexpr int kKeptEntries = 50;

// How a failed update shows on standard output and in the log. A file that can't be loaded isn't
// logged.
struct Failure {
    const char* printed;
    const char* logged;
    const char* cause;
};
constexpr Failure kFailures[] = {
    {"No Update File!\n", "CSP Updater Start Now.\n", "fw.hex"},
    {"Error:-3\n", "Update Error No.-3\n", kMidiLink},
    {"Piano is not connected 2\n", "Piano is not connected 2\n", kMidiLink},
    {"Piano is no reply\n", "Piano is no reply\n", kMidiLink},
    {"Piano Comunication Error !\n", "Piano Comunication Error !\n", kMidiLink},
    {"CSP Update Failed\n", "CSP Update Failed\n", kMidiLink},
};

std::string OldEntries(int from)
{
    std::string entries;
    for (int i = from; i < kOldEntries; ++i)
        entries += "06/03/14/09:05:07 - old entry " + std::to_string(i) + "\n";
    return entries;
}

// The old log must have been cut and the line added, unless the fault has hit the log itself.
std::string WordOnLog(const Stage& stage, const std::string& line)
{
    const std::string log = stage.unit.Log(kUpdateLog);
    const std::string kept = OldEntries(kOldEntries - kKeptEntries);
    const bool isCut = log.compare(0, kept.size(), kept) == 0 &&
                       Holds(log.substr(0, kept.size() + 60), "CSP Updater Start Now.\n");
    const bool hasLine = Holds(log, " - " + line);
    if (isCut && hasLine)
        return "";
    Hold(stage.IsHit({kUpdateLog}), isCut ? "the log lacks: " + line : "the old log isn't kept");
    return ", log hurt";
}

// The file has its new name when that is told, else its old one. It is never lost.
void HoldRenamed(const Stage& stage, const std::string& told, const std::string& hex)
{
    const bool isRenamed = Holds(told, "Rename OK\n");
    Hold(isRenamed || (Holds(told, "Rename NG\n") && stage.IsHit("rename", "fw.hex")),
         "the file isn't renamed");
    Hold(stage.unit.Read(isRenamed ? kRenamedFile : kUpdateFile) == hex, "the file is lost");
    Hold(!stage.unit.Exists(isRenamed ? kUpdateFile : kRenamedFile), "the file has two names");
}

std::string FailedUpdate(const Stage& stage, const std::string& told)
{
    for (const Failure& failure : kFailures) {
        if (!Holds(told, failure.printed))
            continue;
        const std::string log = WordOnLog(stage, failure.logged);
        if (!stage.IsHit({failure.cause}))
            throw Violation{std::string("it fails for no reason: ") + failure.printed};
        return "failed and told" + log;
    }
    throw Violation{"neither finished nor failed"};
}

std::string UpdateOutcome(Stage& stage, Server& server, const UpdateImage& firmware,
                          const Server::Reply& reply)
{
    if (!reply.Has("CSP Update Success.\n")) {
        server.HoldTold(reply, "CSP Update Failed.\n");
        if (!stage.IsHit({kMidiLink, kDspDevice}))
            throw Violation{"an update fails for no reason"};
        return "failed and told";
    }
    server.HoldTold(reply, "CSP Update Success.\n");
    server.piano->Kill(SIGTERM);
    Hold(stage.unit.Flash(kImageStart, firmware.flash.size()) == firmware.flash,
         "finished with a wrong flash");
    return "finished, flash equal";
}

}  // namespace

std::string StandAloneUpdate(Stage& stage)
{
    const UpdateImage firmware = MakeUpdateImage();
    stage.unit.Write(kUpdateFile, firmware.hex);
    stage.unit.Write(kLogFile, OldEntries(0));
    Process& piano = stage.unit.StartPiano(stage.PianoWords({"--allow-gaps"}));
    Process& program = stage.unit.Start("diag_server", {"-b", "-f", "fw.hex"});
    stage.HoldEnd(program);
    piano.Kill(SIGTERM);

    const std::string told = program.Output();
    if (!Holds(told, "APE Update Finished\n")) {
        Hold(stage.unit.Read(kUpdateFile) == firmware.hex, "the file of a failed update is lost");
        return FailedUpdate(stage, told);
    }
    Hold(stage.unit.Flash(kImageStart, firmware.flash.size()) == firmware.flash,
         "finished with a wrong flash");
    HoldRenamed(stage, told, firmware.hex);
    return "finished, flash equal" + WordOnLog(stage, "CSP Update Finished\n");
}

std::string ServerUpdate(Stage& stage)
{
    const UpdateImage firmware = MakeUpdateImage();
    stage.unit.Write("medium/csp_prog.hex", firmware.hex);
    stage.unit.Mount("usb");
    Unit::Words words = Server::kFailingRead;
    words.emplace_back("--allow-gaps");
    Server server(stage, words);
    if (server.IsWithoutPatcher())
        return server.End("ended without the MIDI Patcher");

    server.Ask("DF DF 00 AA", {"1.2\n", "exsit.\n"});
    const Server::Reply reply =
        server.Ask("DF DF 00 BB", {"CSP Update Success.\n", "CSP Update Failed.\n",
                                   "Cannot Execute CSP Update.\n"});
    if (Holds(reply.logged, "Start CSP Update.\n"))
        return server.End(UpdateOutcome(stage, server, firmware, reply));
    if (reply.Has("Cannot Execute CSP Update.\n")) {
        Hold(stage.IsHit({"csp_prog.hex", kController}), "the file isn't found");
        return server.End("not found, refused");
    }
    if (reply.Has("CSP Update Success.\n") || reply.Has("CSP Update Failed.\n")) {
        Hold(stage.IsHit({kServerLog}), "the start isn't logged");
        return server.End(UpdateOutcome(stage, server, firmware, reply));
    }
    Hold(stage.IsHit({kController}), "no answer to the update");
    return server.End("command lost");
}
