#include "Server.h"

#include <chrono>
#include <csignal>
#include <filesystem>

#include "Bytes.h"
#include "Image.h"
#include "Wait.h"

namespace {

// What a lost answer may take, when the fault has hit its way.
constexpr std::chrono::seconds kPatience{1000};
// Between two commands to end by a read-back: each counts only while the gate is open.
constexpr std::chrono::seconds kAgain{80};

constexpr char kReadCommand[] = "DF DF 00 C0";
constexpr char kSavedFile[] = "usr/local/lib/diag/csp_param.hex";
constexpr char kConnected[] = " connected\n";  // in the piano's transcript
constexpr char kPortError[] = "Zaurus Socket Port Open Error";

constexpr std::size_t kLastReadSize = 0x30;
constexpr char kLastReadStop[] = "90040030";
constexpr std::size_t kReadRecordSize = 12;

std::string LastReadFlash()
{
    return Pattern(kLastReadSize, 21);
}

}  // namespace

// The bad record is the last one, so that nothing comes behind it.
const Unit::Words Server::kFailingRead = {"--join", "--bad-checksum-at", "90040000", "--read-stop",
                                          "9004000C"};

bool Server::Reply::Has(const Text& text) const
{
    return Holds(told, text.told) || Holds(logged, text.logged);
}

Server::Server(Stage& itsStage, const Unit::Words& pianoWords)
    : piano(&itsStage.unit.StartPiano(itsStage.PianoWords(pianoWords))),
      stage(itsStage),
      unit(stage.unit),
      server(&unit.StartServer())
{
    Hold(WaitUntil([this] { return IsFirstReadOver(); }, kEndLimit),
         "the first read-back has no end");
}

bool Server::IsServing()
{
    return server->IsRunning();
}

// Either line may be the one that the fault has kept from the log. A read-back that has worked ends
// the server as well.
bool Server::IsFirstReadOver()
{
    if (!server->IsRunning())
        return true;
    const std::string log = unit.Log();
    return (Holds(log, "CSP Read Failed") || Holds(log, "Rebooting CSP")) &&
           !Holds(server->Output(), "CSP Update Finished");
}

bool Server::IsWithoutPatcher() const
{
    return Holds(unit.Log(), "MIDI Patcher is not active.") && stage.IsHit({kMidiLink});
}

bool Server::HasPort() const
{
    return Holds(unit.Journal(), "listen(tcp ");
}

Controller& Server::Connected()
{
    if (!controller || controller->IsClosed())
        controller = std::make_unique<Controller>(unit.Port());
    return *controller;
}

// An answer can't come any more from a server that has ended or has closed the connection. When the
// fault was in its way, it may be lost without such a sign.
void Server::WaitFor(const std::function<bool()>& hasCome, std::initializer_list<const char*> ways)
{
    const auto begin = UnitTime();
    WaitUntil(
        [&] {
            if (hasCome() || !server->IsRunning() || controller->IsClosed())
                return true;
            return UnitTime() - begin > kPatience && stage.IsHit(ways);
        },
        kEndLimit);
}

// A text has come when it has come both ways, or one way while the other is known to be lost.
bool Server::IsWhole(const Reply& reply, const std::vector<Text>& texts) const
{
    for (const Text& text : texts) {
        const bool isTold = Holds(reply.told, text.told);
        const bool isLogged = Holds(reply.logged, text.logged);
        if ((isTold && isLogged) || (isTold && stage.IsHit({kServerLog})) ||
            (isLogged && controller->IsClosed()))
            return true;
    }
    return false;
}

Server::Reply Server::Ask(const std::string& groups, const std::vector<Text>& texts)
{
    if (!server->IsRunning() || !HasPort())
        return {};
    const std::size_t logBefore = unit.Log().size();
    Connected();
    const std::size_t toldBefore = controller->Received().size();
    controller->Send(Bytes(groups));
    Reply reply;
    const auto isWhole = [&] {
        reply = {controller->Received().substr(toldBefore), unit.Log().substr(logBefore)};
        return IsWhole(reply, texts);
    };
    WaitFor(isWhole, {kController});
    // A closed connection doesn't end the command.
    if (controller->IsClosed() && server->IsRunning())
        WaitUntil(isWhole, kPatience);
    return reply;
}

void Server::Say(const std::string& lines)
{
    Connected();
    std::filesystem::rename(unit.Write("sim/say.new", lines), unit.Path("sim/say"));
}

std::string Server::Received()
{
    return controller ? controller->Received() : "";
}

void Server::HoldTold(const Reply& reply, const Text& text) const
{
    Hold(Holds(reply.told, text.told) || stage.IsHit({kController}),
         "the controller doesn't get: " + text.told);
    Hold(Holds(reply.logged, text.logged) || stage.IsHit({kServerLog}),
         "the log lacks: " + text.logged);
}

std::string Server::End(const std::string& outcome)
{
    if (!server->IsRunning()) {
        stage.HoldEnd(*server);
        piano->Kill(SIGTERM);
        return outcome;
    }
    if (!HasPort()) {
        Hold(Holds(unit.Log(), kPortError), "it opens no port and doesn't say so");
        stage.HoldTermination(*server);
        return outcome + ", without a port";
    }
    StartGoodPiano();
    ReadToTheEnd();
    stage.HoldEnd(*server);
    return outcome + WordOnFile();
}

void Server::StartGoodPiano()
{
    piano->Kill(SIGTERM);
    const std::size_t before = CountOf(unit.MidiLog(), kConnected);
    const std::string flash = unit.Write("sim/last-flash", LastReadFlash()) + "@90040000";
    unit.StartPiano({"--join", "--load", flash, "--read-stop", kLastReadStop});
    Hold(WaitUntil([&] { return CountOf(unit.MidiLog(), kConnected) > before; }, kEndLimit),
         "the link to the piano isn't taken up again");
}

// The fault may take one connection, one command or one read.
void Server::ReadToTheEnd()
{
    const auto begin = UnitTime();
    while (server->IsRunning() && UnitTime() - begin < kEndLimit) {
        controller.reset();
        Connected().Send(Bytes(kReadCommand));
        server->Wait(kAgain);
    }
    Hold(!server->IsRunning(), "no command ends it: the gate is shut, or it hangs");
}

std::string Server::WordOnFile() const
{
    const std::string text = HexOf(LastReadFlash(), kReadRecordSize);
    const std::string saved = unit.Read(kSavedFile);
    if (saved == text)
        return "";
    Hold(stage.IsHit("fwrite", "csp_param.hex") || stage.IsHit("open", "csp_param.hex"),
         "the last read-back's file is wrong");
    return stage.IsHit("open", "csp_param.hex") ? ", last read-back not saved"
                                                : ", last read-back's file cut by a full disk";
}
