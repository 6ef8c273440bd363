#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Unit.h"

// What the end-to-end tests share, in addition to the unit itself.

constexpr std::uint32_t kImageStart = 0x90040000;
constexpr std::size_t kParameterSize = 0x60000;  // bytes that a read-back covers
constexpr char kUpdateLog[] = "cspupdate.log";
constexpr char kServerLog[] = "diagserver.log";

// The controller's commands.
constexpr char kFindUpdate[] = "DF DF 00 AA";
constexpr char kUpdate[] = "DF DF 00 BB";
constexpr char kReadParameters[] = "DF DF 00 C0";
constexpr char kFindParameters[] = "DF DF 00 C1";
constexpr char kUpdateParameters[] = "DF DF 00 C2";
constexpr char kBackup[] = "DF DF 00 C3";
constexpr char kRestore[] = "DF DF 00 C4";
constexpr char kVersion[] = "DF DF DF DF";
constexpr char kRepliesOn[] = "DF DF DF E0";
constexpr char kRepliesOff[] = "DF DF DF E1";
constexpr char kServiceText[] = "KVT : Update the Service Center.\n";

// Firmware that carries the version at its place, 0x400 bytes after its start.
std::string FirmwareOf(const std::string& version, std::size_t size);

// An image from 0x90040000 on in the compressed form, without any run in it.
std::string PackedText(const std::string& data);

// The flash's bytes from 0x90040000 on out of a hex file of the unit, by somebody else's tool.
std::string BytesOf(const Unit& unit, const std::string& name);

// The texts of a log's entries, without their time stamps.
std::string LogTexts(const Unit& unit, const std::string& name = kServerLog);

// The console lines and events of the piano's transcript that begin so, without time stamps.
std::vector<std::string> Events(const Unit& unit, const std::string& start);

// The lines of a text that begin so.
std::string LinesOf(const std::string& text, const std::string& start);

std::size_t Count(const std::string& text, const std::string& part);

// True when the program has ended with status 0 and has left no descriptor open.
bool EndsClean(const Unit& unit, Process& program);

// Writes lines for the piano to say, or orders for it, and waits until it has taken them.
bool TellPiano(const Unit& unit, const std::string& text);

// Plays the CSP of a read-back, on an accepted link, that ends at once in a line that is no record.
void FailReadBack(Patcher& patcher);

// A server whose first read-back has failed, so that it takes commands, with its piano and a
// controller.
class OpenServer {
public:
    explicit OpenServer(const Unit::Words& pianoOptions = {}, const std::string& faults = kRefused);

    // Starts the server again when the last one has ended. Its first read-back fails by the faults.
    void Open(const std::string& faults = kRefused);

    // Sends the groups in one write and waits for the text. What has come since then.
    std::string Ask(const std::string& groups, const std::string& until);
    // As above, until the end of a restart of the CSP.
    std::string AskAndReboot(const std::string& groups);

    // The piano misbehaves so from here on; without options not at all.
    void SetFaults(const std::string& options);

    // A new controller in place of the last.
    void Connect() { controller = std::make_unique<Controller>(unit.Port()); }
    // Waits for entries of the log, which come after the texts for the controller.
    bool HasLogged(const std::string& text) const;
    void PutParameters(const std::string& data) const;

    Unit unit;
    Process* piano;
    Process* server;
    std::unique_ptr<Controller> controller;

private:
    static constexpr char kRefused[] = "--bad-checksum-at 90040000";
};
