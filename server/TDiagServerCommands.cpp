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

struct TDiagServer::Command {
    MidiGroup group;                  // what the controller sends
    bool needsMachine;                // without effect before Run
    void (TDiagServer::*carryOut)();  // sends and logs what comes of it
};

const TDiagServer::Command TDiagServer::kCommands[] = {
    {{0xDF, 0xDF, 0x00, 0xAA}, true, &TDiagServer::ShowUpdateFile},
    {{0xDF, 0xDF, 0x00, 0xBB}, true, &TDiagServer::StartCspUpdate},
    {{0xDF, 0xDF, 0x00, 0xC0}, true, &TDiagServer::StartReading},
    {{0xDF, 0xDF, 0x00, 0xC1}, true, &TDiagServer::ShowParameterFile},
    {{0xDF, 0xDF, 0x00, 0xC2}, true, &TDiagServer::StartParameterUpdate},
    {{0xDF, 0xDF, 0x00, 0xC3}, false, &TDiagServer::BackUpParameters},
    {{0xDF, 0xDF, 0x00, 0xC4}, false, &TDiagServer::RestoreParameters},
    {{0xDF, 0xDF, 0xDF, 0xDF}, false, &TDiagServer::ReplyVersion},
    {{0xDF, 0xDF, 0xDF, 0xE0}, false, &TDiagServer::ReplyWithReleaseLine},
    {{0xDF, 0xDF, 0xDF, 0xE1}, false, &TDiagServer::ReplyWithServiceText},
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
            (this->*command.carryOut)();
        return true;
    }
    return false;
}

// A reply goes out before it is logged; only the release line, in SendIOVersion, is logged first.
void TDiagServer::ReplyVersion()
{
    if (versionReply) {
        SendIOVersion(kReleaseFile);
        return;
    }
    Send("KVT : Update the Service Center.\n");
    Log("Update the Service Center.\n");
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

void TDiagServer::ReplyWithReleaseLine()
{
    versionReply = true;
}

void TDiagServer::ReplyWithServiceText()
{
    versionReply = false;
}

// A search loads what it finds, so that a later start needs no medium any more.
void TDiagServer::ShowUpdateFile()
{
    char version[THexFile::kVersionSize] = {};
    if (updater->SearchUpdateHex(version) != 0) {
        SendAndLog("Update File is not exsit.\n");
        return;
    }
    NoteLoadedFile();
    Send(" \n");
    Send("[ System version: Update File ]\n");
    SendAndLog((TSString(version) + "\n").c_str());
}

void TDiagServer::ShowParameterFile()
{
    char stamp[TUpdater::kStampSize] = {};
    if (updater->SearchParameterHex(stamp) != 0) {
        SendAndLog("Parameter File is not exsit.\n");
        return;
    }
    NoteLoadedFile();
    Send("[ Parameter Back Up File ]\n");
    SendAndLog((TSString("CSP Parameter : ") + stamp + "\n").c_str());
}

void TDiagServer::NoteLoadedFile()
{
    if (strict != nullptr)
        strict->TakeLoadedFile(updater->GetFileName());
}

void TDiagServer::StartCspUpdate()
{
    StartUpdate("Start CSP Update.\n", "Cannot Execute CSP Update.\n");
}

void TDiagServer::StartParameterUpdate()
{
    StartUpdate("Start CSP Parameter Update.\n", "Cannot execute Parameter Update.\n");
}

// The two starts differ only in their texts: either writes the file that the last search loaded.
void TDiagServer::StartUpdate(const char* started, const char* refused)
{
    const bool isAllowed = strict == nullptr || strict->AllowsUpdate();
    if (isAllowed && updater->SetUpdateStatus(Status::Connect))
        Log(started);
    else
        SendAndLog(refused);
}

void TDiagServer::SetReadTarget(const char* file)
{
    reader->SetReaderParameter(kReadStart, kReadEnd,
                               strict == nullptr ? file : strict->BeginReadBack(file));
}

// A success ends the server, as that of the first read-back does.
void TDiagServer::StartReading()
{
    SetReadTarget(kParameterFile);
    reader->SetReaderStatus(Status::Connect);
    Log("Start Reading CSP Parameters\n");
}

void TDiagServer::BackUpParameters()
{
    CopyParameters("Copying CSP Parameters...HD -> FD\n", true);
}

void TDiagServer::RestoreParameters()
{
    CopyParameters("Copying CSP Parameters...FD -> HD\n", false);
}

// The first text goes out before the copy, during which nothing is served.
void TDiagServer::CopyParameters(const char* started, bool toMedia)
{
    SendAndLog(started);
    SendAndLog(ParameterBackup::Text(CopyParameterFile(toMedia)));
}

int TDiagServer::CopyParameterFile(bool toMedia)
{
    return toMedia ? ParameterBackup::CopyToMedium() : ParameterBackup::CopyFromMedium();
}
