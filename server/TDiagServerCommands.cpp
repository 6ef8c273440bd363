// The controller's commands: which there are, and what each of them does.

#include <algorithm>

#include "ParameterBackup.h"
#include "Strict.h"
#include "TDiagServer.h"
#include "TextFile.h"
#include "UnitPaths.h"

namespace {

// The range of a read-back. The CSP never gets it: the reader asks for all of its parameter flash.
constexpr unsigned long kReadStart = 0x90170000;
constexpr unsigned long kReadEnd = 0x90200000;

// The first byte of groups that reach the piano in the other kind of frame, whatever follows it.
constexpr unsigned char kAlternateGroup = 'l';

}  // namespace

// A row of the table. What the commands do is in here, so that a new one touches no other source.
struct TDiagServer::Command {
    MidiGroup group = {};                             // what the controller sends
    bool needsMachine = false;                        // without effect before Run
    void (*carryOut)(TDiagServer& server) = nullptr;  // sends and logs the result

    // A search loads what it finds, so that a later start needs no medium any more.
    static void ShowUpdateFile(TDiagServer& server)
    {
        char version[THexFile::kVersionSize] = {};
        if (server.updater->SearchUpdateHex(version) != 0) {
            server.SendAndLog("Update File is not exsit.\n");
            return;
        }
        NoteLoadedFile(server);
        server.Send(" \n");
        server.Send("[ System version: Update File ]\n");
        server.SendAndLog((TSString(version) + "\n").c_str());
    }

    static void ShowParameterFile(TDiagServer& server)
    {
        char stamp[TUpdater::kStampSize] = {};
        if (server.updater->SearchParameterHex(stamp) != 0) {
            server.SendAndLog("Parameter File is not exsit.\n");
            return;
        }
        NoteLoadedFile(server);
        server.Send("[ Parameter Back Up File ]\n");
        server.SendAndLog((TSString("CSP Parameter : ") + stamp + "\n").c_str());
    }

    static void NoteLoadedFile(TDiagServer& server)
    {
        if (server.strict != nullptr)
            server.strict->TakeLoadedFile(server.updater->GetFileName());
    }

    static void StartCspUpdate(TDiagServer& server)
    {
        StartUpdate(server, "Start CSP Update.\n", "Cannot Execute CSP Update.\n");
    }

    static void StartParameterUpdate(TDiagServer& server)
    {
        StartUpdate(server, "Start CSP Parameter Update.\n", "Cannot execute Parameter Update.\n");
    }

    // The two starts differ only in their texts: either writes the file that the last search
    // loaded.
    static void StartUpdate(TDiagServer& server, const char* started, const char* refused)
    {
        const bool isAllowed = server.strict == nullptr || server.strict->AllowsUpdate();
        if (isAllowed && server.updater->SetUpdateStatus(Status::Connect))
            Log(started);
        else
            server.SendAndLog(refused);
    }

    // A success ends the server, as that of the first read-back does.
    static void StartReading(TDiagServer& server)
    {
        server.SetReadTarget(kParameterFile);
        server.reader->SetReaderStatus(Status::Connect);
        Log("Start Reading CSP Parameters\n");
    }

    static void BackUpParameters(TDiagServer& server)
    {
        CopyParameters(server, "Copying CSP Parameters...HD -> FD\n", true);
    }

    static void RestoreParameters(TDiagServer& server)
    {
        CopyParameters(server, "Copying CSP Parameters...FD -> HD\n", false);
    }

    // The first text goes out before the copy, during which nothing is served.
    static void CopyParameters(TDiagServer& server, const char* started, bool toMedia)
    {
        server.SendAndLog(started);
        server.SendAndLog(ParameterBackup::Text(server.CopyParameterFile(toMedia)));
    }

    // A reply goes out before it is logged; only the release line, in SendIOVersion, is logged
    // first.
    static void ReplyVersion(TDiagServer& server)
    {
        if (server.versionReply) {
            server.SendIOVersion(kReleaseFile);
            return;
        }
        server.Send("KVT : Update the Service Center.\n");
        Log("Update the Service Center.\n");
    }

    static void ReplyWithReleaseLine(TDiagServer& server) { server.versionReply = true; }

    static void ReplyWithServiceText(TDiagServer& server) { server.versionReply = false; }
};

const TDiagServer::Command TDiagServer::kCommands[] = {
    {{0xDF, 0xDF, 0x00, 0xAA}, true, &Command::ShowUpdateFile},
    {{0xDF, 0xDF, 0x00, 0xBB}, true, &Command::StartCspUpdate},
    {{0xDF, 0xDF, 0x00, 0xC0}, true, &Command::StartReading},
    {{0xDF, 0xDF, 0x00, 0xC1}, true, &Command::ShowParameterFile},
    {{0xDF, 0xDF, 0x00, 0xC2}, true, &Command::StartParameterUpdate},
    {{0xDF, 0xDF, 0x00, 0xC3}, false, &Command::BackUpParameters},
    {{0xDF, 0xDF, 0x00, 0xC4}, false, &Command::RestoreParameters},
    {{0xDF, 0xDF, 0xDF, 0xDF}, false, &Command::ReplyVersion},
    {{0xDF, 0xDF, 0xDF, 0xE0}, false, &Command::ReplyWithReleaseLine},
    {{0xDF, 0xDF, 0xDF, 0xE1}, false, &Command::ReplyWithServiceText},
};

// Nothing is kept from one read to the next. A group that was split over two reads can't be put
// together again, for nothing in the stream marks where a group begins.
void TDiagServer::ProcessZaurus(char* buffer)
{
    const int count = zaurus->ReadMessage(buffer);
    for (int at = 0; at + kGroupSize <= count; at += kGroupSize) {
        // Asked before each group: a command that starts a state machine shuts out what follows it.
        if (IsUpdating() || IsReading())
            continue;
        MidiGroup group;
        std::copy_n(buffer + at, kGroupSize, group.begin());
        if (group[0] == kAlternateGroup)
            midi->WriteMidi(1, group.data());
        else if (!DoCommand(group))
            midi->WriteMidi(0, group.data());
    }
}

// False when the group is no command and belongs to the piano.
bool TDiagServer::DoCommand(const MidiGroup& group)
{
    for (const Command& command : kCommands) {
        if (command.group != group)
            continue;
        if (HasMachines() || !command.needsMachine)
            command.carryOut(*this);
        return true;
    }
    return false;
}

// Without a release line there is no reply at all, not even the service text.
bool TDiagServer::SendIOVersion(const char* path)
{
    PieceReader file(path);
    if (!file)
        return false;
    const char* const line = file.Next();
    file.Close();  // the log and the controller get a descriptor that is free by then
    if (line != nullptr) {
        Log(line);
        Send(line);
    }
    return true;
}

void TDiagServer::SetReadTarget(const char* file)
{
    reader->SetReaderParameter(kReadStart, kReadEnd,
                               strict == nullptr ? file : strict->BeginReadBack(file));
}

int TDiagServer::CopyParameterFile(bool toMedia)
{
    return toMedia ? ParameterBackup::CopyToMedium() : ParameterBackup::CopyFromMedium();
}
