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
    MidiGroup group = {};                       // what the controller sends
    bool needsMachine = false;                  // without effect before Run
    bool takesLong = false;                     // seconds, or minutes with a medium
    void (TDiagServer::*carryOut)() = nullptr;  // sends and logs the result
};

const TDiagServer::Command TDiagServer::kCommands[] = {
    {{0xDF, 0xDF, 0x00, 0xAA}, true, true, &TDiagServer::ShowUpdateFile},
    {{0xDF, 0xDF, 0x00, 0xBB}, true, false, &TDiagServer::StartCspUpdate},
    {{0xDF, 0xDF, 0x00, 0xC0}, true, false, &TDiagServer::StartReading},
    {{0xDF, 0xDF, 0x00, 0xC1}, true, true, &TDiagServer::ShowParameterFile},
    {{0xDF, 0xDF, 0x00, 0xC2}, true, false, &TDiagServer::StartParameterUpdate},
    {{0xDF, 0xDF, 0x00, 0xC3}, false, true, &TDiagServer::BackUpParameters},
    {{0xDF, 0xDF, 0x00, 0xC4}, false, true, &TDiagServer::RestoreParameters},
    {{0xDF, 0xDF, 0xDF, 0xDF}, false, false, &TDiagServer::ReplyVersion},
    {{0xDF, 0xDF, 0xDF, 0xE0}, false, false, &TDiagServer::ReplyWithReleaseLine},
    {{0xDF, 0xDF, 0xDF, 0xE1}, false, false, &TDiagServer::ReplyWithServiceText},
};

// A search loads what it finds, so that a later start needs no medium any more.
void TDiagServer::ShowUpdateFile()
{
    char version[THexFile::kVersionSize] = {};
    const bool isFound = FindUpdateFile(version);
    if (isFound) {
        Send(" \n");
        Send("[ System version: Update File ]\n");
        SendAndLog((TSString(version) + "\n").c_str());
    } else {
        SendAndLog("Update File is not exsit.\n");
    }
    ExplainSearch();
}

void TDiagServer::ShowParameterFile()
{
    char stamp[TUpdater::kStampSize] = {};
    if (FindParameterFile(stamp)) {
        Send("[ Parameter Back Up File ]\n");
        SendAndLog((TSString("CSP Parameter : ") + stamp + "\n").c_str());
    } else {
        SendAndLog("Parameter File is not exsit.\n");
    }
    ExplainSearch();
}

// With --strict a file with errors isn't loaded: only its version is shown.
bool TDiagServer::FindUpdateFile(char* version)
{
    if (strict == nullptr)
        return updater->SearchUpdateHex(version) == 0;
    return strict->gate.Load(*updater, TUpdater::FindUpdateSource(), version);
}

bool TDiagServer::FindParameterFile(char* stamp)
{
    if (strict == nullptr)
        return updater->SearchParameterHex(stamp) == 0;
    TUpdater::PrintParameterStamp(stamp);
    return strict->gate.Load(*updater, kParameterFile, nullptr);
}

void TDiagServer::ExplainSearch()
{
    if (strict == nullptr)
        return;
    Explain(strict->gate.Notes());
    Explain(strict->gate.Problems());
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
    const bool isAllowed = strict == nullptr || strict->gate.Problems().empty();
    if (isAllowed && updater->SetUpdateStatus(Status::Connect))
        return Log(started);
    SendAndLog(refused);
    if (strict != nullptr)
        Explain(strict->gate.Problems());
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
    if (strict != nullptr)
        Explain(strict->copy.Reasons());
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

void TDiagServer::ReplyWithReleaseLine()
{
    versionReply = true;
}

void TDiagServer::ReplyWithServiceText()
{
    versionReply = false;
}

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
        const Command* const command = FindCommand(group);
        if (command == nullptr)
            midi->WriteMidi(group[0] == kAlternateGroup ? 1 : 0, group.data());
        else
            CarryOut(*command);
        // With --strict the controller must see the result before it sends another command.
        if (strict != nullptr && command != nullptr && command->takesLong)
            return;
    }
}

// Null when the group is no command and belongs to the piano.
const TDiagServer::Command* TDiagServer::FindCommand(const MidiGroup& group)
{
    for (const Command& command : kCommands) {
        if (command.group == group)
            return &command;
    }
    return nullptr;
}

void TDiagServer::CarryOut(const Command& command)
{
    if (HasMachines() || !command.needsMachine)
        (this->*command.carryOut)();
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
    readTarget = file;
    reader->SetReaderParameter(kReadStart, kReadEnd, strict == nullptr ? file : kNowhere);
}

int TDiagServer::CopyParameterFile(bool toMedia)
{
    if (strict != nullptr)
        return toMedia ? strict->copy.ToMedium() : strict->copy.FromMedium();
    return toMedia ? ParameterBackup::CopyToMedium() : ParameterBackup::CopyFromMedium();
}
