#pragma once

#include "Console.h"
#include "ReadSet.h"
#include "TCspReader.h"
#include "TMidiCom.h"
#include "TRCServerCom.h"
#include "TSString.h"
#include "TUpdater.h"
#include "TZaurusCom.h"

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
    TDiagServer();
    ~TDiagServer();
    TDiagServer(const TDiagServer&) = delete;
    TDiagServer& operator=(const TDiagServer&) = delete;

    // Opens the links and listens at the controller's port. 0, or -3 when the MIDI Patcher can't be
    // reached: Run isn't to be called then. Any other failure is a line of the log.
    int Initialize(int port, int connecttype);

    // Serves until a read-back has succeeded. Returns 0.
    int Run();

    // The handlers of the loop. `buffer` has room for 8194 bytes: the largest single read of a link
    // and a NUL.

    // Takes one message from the piano side: to the controller as it is, to the state machine that
    // is active, or line by line to the RC Server and the controller.
    void ProcessMidi(char* buffer);

    // Takes one command from standard input. No step of the loop calls it.
    void ProcessKeyboard(char* buffer);

    // Takes what the controller has sent, in groups of four bytes. The commands that search, read
    // and update need the state machines that Run makes.
    void ProcessZaurus(char* buffer);

    // Logs the first line of the file and sends it to the controller. True when the file could be
    // opened, also when there is nothing in it to send.
    bool SendIOVersion(const char* path);

    // Copies the parameter file to the medium, or from it. Blocks until the copy has ended and
    // leaves the medium mounted. 0: copied; -1: no file to copy; -2: not compressed; -3: no room;
    // -4: mount or copy failed; -5: no medium.
    int CopyParameterFile(bool toMedia);

private:
    void StartFirstRead();
    bool OpenMidi(int connecttype);
    void OpenRCServer();
    void OpenPort();

    bool StepReader();
    void StepUpdater();
    void RebootCsp();
    void OnTimeout();
    void Dispatch(const ReadSet& set, char* buffer);
    void ReconnectMidi();
    bool IsUpdating() const;
    bool IsReading() const;

    void PassConsoleLines(char* const* lines, int count);
    bool DoCommand(const unsigned char* group);
    void ReplyVersion();
    void ShowUpdateFile();
    void ShowParameterFile();
    void StartUpdate(const char* started, const char* refused);
    void StartReading();
    void CopyParameters(bool toMedia);
    int CopyToMedium(const TSString& mountPoint);
    int CopyFromMedium(const TSString& mountPoint);

    void Tell(const char* text);
    void TellAndLog(const char* text);

    int language;
    bool versionReply;
    TZaurusCom* zaurus;
    TMidiCom* midi;
    TRCServerCom* rcserver;
    TUpdater* updater;
    TCspReader* reader;
};
