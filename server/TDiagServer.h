#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Console.h"
#include "ReadSet.h"
#include "Sockets.h"
#include "TCspReader.h"
#include "TMidiCom.h"
#include "TRCServerCom.h"
#include "TSString.h"
#include "TUpdater.h"
#include "TZaurusCom.h"

class Strict;

// A result of TDiagServer::Initialize, besides kNoPatcher.
inline constexpr int kNoPort = -4;

// The diagnostic server: one thread, one loop, no locks.
//
//    controller <--TCP--> TZaurusCom --+                +-- TMidiCom <--> MIDI Patcher, piano, CSP
//                                      +-- TDiagServer -+
//    TUpdater, TCspReader -------------+                +-- TRCServerCom --> RC Server
//
// A read-back of the CSP's parameters starts with the loop. While it or an update is active, the
// CSP's console lines go to it and what the controller sends is dropped.
class TDiagServer {
public:
    TDiagServer() = default;

    // The state machines live until the process ends.
    ~TDiagServer();
    TDiagServer(const TDiagServer&) = delete;
    TDiagServer& operator=(const TDiagServer&) = delete;

    // Enables the --strict checks, and listens only at the IPv4 address, whose first byte is the
    // highest; call before Initialize. `checks` must outlive the server.
    void SetStrict(Strict* checks, std::uint32_t address);

    // Opens the links and listens at the controller's port. 0, or -3 when the MIDI Patcher can't be
    // reached: Run isn't to be called then. Any other failure is a line of the log, except that
    // with the checks of --strict a port that can't be opened makes the result -4.
    int Initialize(int port, int connecttype);

    // Serves until a read-back has succeeded. Returns 0.
    int Run();

    // The handlers of the loop. `buffer` has room for 8194 bytes: the largest single read of a link
    // and a NUL.

    // Takes one message from the piano side: to the controller as it is, to the state machine that
    // is active, or line by line to the RC Server and the controller.
    void ProcessMidi(char* buffer);

    // Takes one command from standard input. For a program that watches it; the loop doesn't.
    void ProcessKeyboard(char* buffer);

    // Takes what the controller has sent, in groups of four bytes. Before Run has made the state
    // machines, the commands that need one have no effect.
    void ProcessZaurus(char* buffer);

    // Logs the first line of the file and sends it to the controller. True when the file could be
    // opened, even when it is empty and nothing is sent.
    bool SendIOVersion(const char* path);

    // Copies the parameter file to the medium, or from it. The result is one of
    // ParameterBackup::Result, 0 when the file was copied.
    int CopyParameterFile(bool toMedia);

private:
    // A row of the controller's commands.
    struct Command;
    static const Command kCommands[];

    void ShowUpdateFile();
    void ShowParameterFile();
    void StartCspUpdate();
    void StartParameterUpdate();
    void StartReading();
    void BackUpParameters();
    void RestoreParameters();
    void ReplyVersion();
    void ReplyWithReleaseLine();
    void ReplyWithServiceText();

    bool FindUpdateFile(char* version);
    bool FindParameterFile(char* stamp);
    void ExplainSearch();
    void StartUpdate(const char* started, const char* refused);
    void CopyParameters(const char* started, bool toMedia);

    bool OpenMidi(int connecttype);
    const char* ConnectMidi(int connecttype);
    void OpenRCServer();
    void OpenPort();
    void MakeMachines();

    Step StepReader();
    std::string SaveReadBack(Step result);
    void StepUpdater();
    void RebootCsp();
    void OnTimeout();
    void Dispatch(const ReadSet& set, char* buffer);
    void ReconnectMidi();

    // Before Run there are no machines, so none is active and no command may need one.
    bool HasMachines() const { return updater != nullptr; }
    bool IsUpdating() const { return HasMachines() && updater->GetUpdateStatus() >= 0; }
    bool IsReading() const { return HasMachines() && reader->GetReaderStatus() >= 0; }

    void TakeConsoleLine(const char* line);
    static const Command* FindCommand(const MidiGroup& group);
    void CarryOut(const Command& command);
    void SetReadTarget(const char* file);

    void Log(const char* text) const;
    void Send(const char* text);
    void SendAndLog(const char* text);
    void Explain(const std::vector<std::string>& reasons);

    int language = 0;           // 1 when the unit's language file names Japanese, else 0
    bool versionReply = false;  // a version request is answered with the release line; outlives
                                // the connection that switched it on

    // The links, null before Initialize. They are destroyed in the reverse of this order.
    std::unique_ptr<TZaurusCom> zaurus;      // to the controller
    std::unique_ptr<TMidiCom> midi;          // to the piano, through the MIDI Patcher
    std::unique_ptr<TRCServerCom> rcserver;  // to the RC Server

    // The state machines, null before Run.
    std::unique_ptr<TUpdater> updater;   // the update
    std::unique_ptr<TCspReader> reader;  // the read-back

    // With --strict, which it is null without: its checks, the address to listen at, and the file
    // of the present read-back.
    Strict* strict = nullptr;
    std::uint32_t address = kAnyAddress;
    std::string readTarget;
};
