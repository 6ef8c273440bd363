#pragma once

#include "Connection.h"
#include "MidiPeer.h"
#include "Unit.h"

// The controller's commands.
constexpr char kFindUpdate[] = "DF DF 00 AA";
constexpr char kUpdate[] = "DF DF 00 BB";
constexpr char kReadParameters[] = "DF DF 00 C0";
constexpr char kFindParameters[] = "DF DF 00 C1";
constexpr char kUpdateParameters[] = "DF DF 00 C2";
constexpr char kBackup[] = "DF DF 00 C3";
constexpr char kRestore[] = "DF DF 00 C4";
constexpr char kVersion[] = "DF DF DF DF";
constexpr char kServiceText[] = "KVT : Update the Service Center.\n";

// The words of a server: on any free port, and with --strict, which wants to know the port.
inline const Words kAnyPort = {"-P", "0"};
inline Words StrictWords()
{
    return {"--strict", "-P", OwnPort()};
}

// A unit with a server between its controller and its piano. The piano is simpiano, or peers that
// the test simulates itself, so that it controls each byte and each moment.
class Scene : public Unit {
public:
    using Unit::Unit;

    // Starts a server with simpiano. Open waits until the first read-back has failed, so that the
    // server takes commands, and connects a controller.
    void StartWithPiano(const Words& words, const Words& options = {});
    void OpenWithPiano(const Words& words = kAnyPort);
    // The piano misbehaves in this way from now on; without options not at all.
    void SetFaults(const std::string& options) const;

    // Starts a server with peers, without the one at the path `absent`, up to the request for the
    // CSP's state. StartReading goes on to the request for the first record, and Open lets the
    // read-back fail there.
    void StartWithPeers(const Words& words = kAnyPort, const std::string& absent = "none");
    void StartReading();
    void Open();
    void OpenWithPeers(const Words& words = kAnyPort, const std::string& absent = "none");

    // A new controller in place of the last, which is returned.
    std::unique_ptr<Controller> Connect();

    // Sends groups of the controller in one write. Ask waits for the text, or until the server
    // waits, and returns what was received since.
    void Send(const std::string& groups) const;
    std::string Ask(const std::string& groups, const std::string& until = "");
    // Sends one message of the piano's side: its frames in one block, or any bytes.
    void Say(const std::string& frames) { SayBytes(MidiPeer::Stuff(frames)); }
    void SayBytes(const std::string& bytes);

    // Waits until the server waits. No time passes.
    void Settle() const { Pass(std::chrono::seconds(0)); }
    // Lets time pass, or the server end.
    void Pass(std::chrono::nanoseconds time) const;

    // Waits until the server waits, and returns what it has sent or logged since the last call:
    // texts and messages to the controller; MIDI frames, "C0 00 90 3C 40 00\n" each (kind and
    // data); entries of the log.
    std::string TakeReplies();
    std::string TakeFrames();
    std::string TakeLog();
    // All three after groups were sent.
    std::string Exchange(const std::string& groups);

    Process* piano = nullptr;
    Process* server = nullptr;
    std::optional<MidiPeer> patcher;
    std::optional<Neighbour> rcServer;
    std::unique_ptr<Controller> controller;

private:
    std::size_t replySize = 0;
    std::size_t frameCount = 0;
    std::size_t logSize = 0;
};
