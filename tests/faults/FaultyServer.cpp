#include "FaultyServer.h"

#include <csignal>
#include <filesystem>

#include "Bytes.h"
#include "HexText.h"

namespace {

// Enough for any command but an update.
constexpr std::chrono::seconds kCommandTime{20};

}  // namespace

// The bad record is the last one, so that nothing follows it.
const Unit::Words FaultyServer::kFailingRead = {"--join",      "--bad-checksum-at", "90040000",
                                                "--read-stop", "9004000C",          "--allow-gaps"};

FaultyServer::FaultyServer(FaultyUnit& itsUnit, const Unit::Words& pianoOptions)
    : piano(itsUnit.StartFaultyPiano(pianoOptions)), unit(itsUnit), server(itsUnit.StartServer())
{
    // The log may be what the fault has hit. A read-back that has worked ends the server.
    const auto isOver = [this] {
        const std::string log = unit.Log();
        return !server.IsRunning() ||
               ((Contains(log, "CSP Read Failed") || Contains(log, "Rebooting CSP")) &&
                !Contains(server.Output(), "CSP Update Finished"));
    };
    Check(WaitUntil(isOver, kEndLimit), "the first read-back has no end");
}

bool FaultyServer::LacksPatcher() const
{
    return Contains(unit.Log(), "MIDI Patcher is not active.") && unit.IsHit({kMidiLink});
}

void FaultyServer::LetPass(std::chrono::nanoseconds time)
{
    const auto end = UnitTime() + time;
    WaitUntil([&] { return UnitTime() >= end || !server.IsRunning(); }, kEndLimit);
}

Controller& FaultyServer::Connected()
{
    if (!controller || controller->IsClosed())
        controller = std::make_unique<Controller>(unit.Port());
    return *controller;
}

FaultyServer::Reply FaultyServer::Ask(const std::string& groups,
                                      const std::vector<const char*>& texts)
{
    if (!server.IsRunning())
        return {};
    const std::size_t receivedBefore = Connected().Received().size();
    const std::size_t loggedBefore = unit.Log().size();
    controller->Send(Bytes(groups));
    Reply reply;
    const auto hasCome = [&] {
        reply = {controller->Received().substr(receivedBefore), unit.Log().substr(loggedBefore)};
        bool has = !server.IsRunning();
        for (const char* text : texts)
            has = has || reply.Has(text);
        return has;
    };
    const auto end = UnitTime() + kEndLimit;
    if (!texts.empty())
        WaitUntil([&] { return hasCome() || UnitTime() >= end; }, 2 * kEndLimit);
    LetPass(kCommandTime);
    hasCome();
    return reply;
}

std::string FaultyServer::Say(const std::string& lines)
{
    Connected();
    std::filesystem::rename(unit.Write("sim/say.new", lines), unit.Path("sim/say"));
    LetPass(kCommandTime);
    return controller->Received();
}

void FaultyServer::CheckReported(const Reply& reply, const std::string& text) const
{
    Check(Contains(reply.received, text) || unit.IsHit({kController}),
          "the controller doesn't get: " + text);
    Check(Contains(reply.logged, text) || unit.IsHit({kServerLog}), "the log lacks: " + text);
}

std::string FaultyServer::End(const std::string& outcome)
{
    // Between two commands: each counts only while the gate is open.
    constexpr std::chrono::seconds kReadTime{80};

    piano.Kill(SIGTERM);
    if (!server.IsRunning()) {
        unit.CheckEnd(server);
        return outcome;
    }
    const std::string flash = unit.Write("sim/last-flash", Firmware(0x30)) + "@90040000";
    const std::size_t before = unit.MidiLog().size();
    unit.StartPiano({"--join", "--read-cut", "8", "--load", flash, "--read-stop", "90040030"});
    const auto isConnected = [&] {
        return Contains(unit.MidiLog().substr(before), " connected\n");
    };
    Check(WaitUntil(isConnected, kEndLimit), "the link to the piano isn't made again");
    // The fault may take one connection, one command or one read.
    for (const auto limit = UnitTime() + kEndLimit; server.IsRunning() && UnitTime() < limit;) {
        controller.reset();
        Connected().Send(Bytes("DF DF 00 C0"));
        LetPass(kReadTime);
    }
    Check(!server.IsRunning(), "no command ends it: the gate is shut, or it hangs");
    unit.CheckEnd(server);
    return outcome + FileOutcome();
}

std::string FaultyServer::FileOutcome() const
{
    const std::string file = unit.Read("usr/local/lib/diag/csp_param.hex");
    if (file == HexText(Firmware(0x30), 8, "\r\n"))
        return "";
    if (unit.IsHit({"csp_param.hex"}, "open"))
        return ", last read-back not saved";
    Check(unit.IsHit({"csp_param.hex"}, "fwrite"), "the last read-back's file is wrong");
    return ", last read-back's file cut by a full disk";
}
