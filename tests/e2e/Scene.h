#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Unit.h"

// What the end-to-end tests share in addition to the unit.

constexpr std::uint32_t kImageStart = 0x90040000;

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

// Firmware with the version 0x400 bytes after its start.
std::string FirmwareOf(const std::string& version, std::size_t size);

// The texts of a log's entries, without their time stamps.
std::string LogTexts(const Unit& unit, const std::string& path = kServerLog);

// The frames of console lines, one after the other.
std::string Frames(const std::vector<std::string>& lines,
                   const std::string& head = MidiPeer::kHead);

// The end of the text, as long as `expected`; all of it when that is empty.
std::string EndOf(const std::string& text, const std::string& expected);

std::size_t Count(const std::string& text, const std::string& part);

// One byte more than the strict mode reads of a file.
std::string TooLargeFile(char byte);

// The words of a command line; '' is an empty one.
Unit::Words Split(const std::string& line);

// Expects that the program ends with status 0 and leaves no descriptor open.
void ExpectCleanEnd(const Unit& unit, Process& program);

// A server with a piano and a controller, after a failed first read-back, so that it takes
// commands.
class ServerWithPiano {
public:
    explicit ServerWithPiano(const Unit::Words& words = {"-P", "0"});

    // The piano misbehaves in this way from now on; without options not at all.
    void SetFaults(const std::string& options) const;
    // Sends the groups in one write and waits for the text. Returns what was received since.
    std::string Ask(const std::string& groups, const std::string& until);

    Unit unit;
    Process& piano;
    Process& server;
    Controller controller;
};

// A server between peers that the test simulates itself, so that it controls each byte and each
// moment. It begins where the first read-back of the server asks for the CSP's state.
class ServerWithPeers {
public:
    // `arrange` changes the unit before the server starts in it, with these words.
    explicit ServerWithPeers(const std::function<void(Unit&)>& arrange = nullptr,
                             const Unit::Words& words = {"-P", "0"});

    // Lets the first read-back fail, so that the server takes commands.
    void Open();
    // A new controller in place of the last, which is returned.
    std::unique_ptr<Controller> Connect();

    // Sends groups of the controller in one write. Ask returns the replies.
    void Send(const std::string& groups) const;
    std::string Ask(const std::string& groups);
    // Sends one message of the piano's side: its frames in one block, or any bytes.
    void Say(const std::string& frames);
    void SayBytes(const std::string& bytes);

    // Waits until the server waits. No time passes.
    static void Settle();

    // Waits until the server waits, and returns what it has sent or logged since the last call:
    // texts and messages to the controller; MIDI frames, "C0 00 90 3C 40 00\n" each (kind and
    // data); entries of the log.
    std::string TakeReplies();
    std::string TakeFrames();
    std::string TakeLog();

    Unit unit;
    MidiPeer patcher;
    Neighbour rcServer;
    Process* server;
    std::unique_ptr<Controller> controller;

private:
    std::size_t replySize = 0;
    std::size_t frameCount = 0;
    std::size_t logSize = 0;
};
