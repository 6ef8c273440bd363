#pragma once

#include <memory>
#include <string_view>

#include "Machine.h"
#include "RowSender.h"
#include "THexFile.h"
#include "TMidiCom.h"
#include "TSString.h"
#include "TZaurusCom.h"
#include "UnitPaths.h"

class ConsoleLine;
class ReadSet;
struct UpdateMode;

// Results of Initialize, the second also of the server's.
inline constexpr int kNoFile = -1;     // the file can't be loaded
inline constexpr int kNoPatcher = -3;  // the MIDI Patcher can't be reached

// The firmware update: writes an Intel HEX image into the CSP's flash, row by row as the file has
// it. It has no thread and no timer of its own. The loop of the mode calls a step once per pass and
// hands it the answers of the CSP, which move the status:
//
//    Connect --Status:Flash Idle--> Request --Start WRITE ?--> StartData --> Transfer
//    Transfer --Finished--> Finished            Transfer --Failed--> Failed
//
// In update mode (Initialize, Run) the object owns its links, reports on standard output and in the
// update log, and restarts once after "Failed". In the server it gets the links with each call and
// reports to the controller; an image comes in through a search. Names with "Diag" are the
// server's. UpdateMode has what sets the two apart, and RowSender sends the rows.
class TUpdater {
public:
    // Room for the time stamp of a file of any year, its NUL included.
    static constexpr int kStampSize = 64;

    TUpdater() = default;
    ~TUpdater() = default;  // image, MIDI link and controller's link, in this order
    TUpdater(const TUpdater&) = delete;
    TUpdater& operator=(const TUpdater&) = delete;

    // Update mode: no frame to the MIDI Patcher waits for longer than TMidiCom::kMostWait seconds;
    // call before Initialize.
    void BoundWaits() { isBounded = true; }

    // Update mode: loads the file, opens the links, switches the piano side on and starts the
    // update. 0, -1 when the file can't be loaded (nothing is opened then), -3 when the MIDI
    // Patcher can't be reached.
    int Initialize(bool renameFile, int port, const char* fileName, int connecttype);

    // Update mode: runs the update to its end and restarts the CSP. 0 when it has finished, -1 when
    // it has failed.
    int Run();

    // Starts the update with status 0. False when no image is loaded.
    bool SetUpdateStatus(int status);

    // -1 when no update is running.
    int GetUpdateStatus() const;

    // Ends the update and drops the image.
    void ClearUpdateStatus();

    // Counts one timeout of the server's loop, 10 seconds of silence.
    void IncUpdateCounter();

    // One step. 1: call again on the next pass; 0: finished; -1: failed. After its end an update
    // keeps its status. UpdateStatus serves update mode, UpdateStatusDiag the server.
    int UpdateStatus();
    int UpdateStatusDiag(TMidiCom* midi, TZaurusCom* zaurus);

    // Sends rows from `address` on (a seek first, unless sending has got just there) until the
    // address that follows a row is a multiple of `blockSize`, or to the last row.
    void SendIntelHex(TMidiCom* midi, unsigned long address, int blockSize);

    // One answer line of the CSP, `length` its strlen. The first serves update mode, the second the
    // server.
    void GetCSPMessage(const char* message, int length);
    void GetCSPMessageDiag(TMidiCom* midi, TZaurusCom* zaurus, const char* message, int length);

    // The path of the image that was loaded last, empty before the first.
    const char* GetFileName() const { return hexFileName; }

    // The image that is loaded, null when there is none. It belongs to this object.
    const THexFile* GetImage() const { return hexFile.get(); }

    // Update mode: the errno of the power device at the restart after Run, 0 when that went well.
    int GetRestartError() const { return restartError; }

    // The line that shows a file's version.
    static TSString VersionLine(const char* version);

    // The name that a finished update gives its file: the version, in the file's directory. `file`
    // isn't empty.
    static TSString VersionedName(const char* file, const char* version);

    // The path of the firmware file on the media that a search takes, the first that exists; null
    // when there is none.
    static const char* FindUpdateSource();

    // Looks for a firmware file on the media, and loads the first that exists. `version` gets its
    // version text and has room for THexFile::kVersionSize bytes. 0, or -1 when there is none or it
    // can't be loaded.
    int SearchUpdateHex(char* version);

    // Loads the parameter file from the unit's disk. `stamp` gets its time of modification, as in
    // (2004/3/5/09:07), and has room for kStampSize bytes. 0 or -1.
    int SearchParameterHex(char* stamp);

    // Loads a file in place of the present image, which is gone whatever happens. `version` gets
    // the version text (THexFile::kVersionSize bytes of room), unless it is null. Starts nothing.
    // 0 or -1.
    int LoadIntelHex(const char* path, char* version);

    // The same for a text that is in memory already; `path` is where it comes from.
    int LoadText(const char* path, std::string_view text, char* version);

    // The time stamp of the parameter file, as SearchParameterHex sets it. Unchanged when the file
    // can't be looked at.
    static void PrintParameterStamp(char* stamp);

private:
    // A row of the answers that an update understands.
    struct Answer;
    static const Answer kAnswers[];  // the first that fits decides

    // TUpdater.cpp: search and load.
    bool StoreFileName(const char* path);
    std::unique_ptr<THexFile> BeginLoad();
    void TakeImage(std::unique_ptr<THexFile> loaded, char* version);
    int ExpandAndLoad(const char* source, char* version);

    // TUpdaterSteps.cpp: a step of each status.
    Step TakeStep(const UpdateMode& mode);
    Step StepConnect(const UpdateMode& mode);
    Step StepRequest(const UpdateMode& mode);
    Step StepStartData(const UpdateMode& mode);
    Step StepTransfer(const UpdateMode& mode);
    Step StepFinished(const UpdateMode& mode);
    Step StepFailed(const UpdateMode& mode);
    Step EndOfStep(const UpdateMode& mode) const;
    void EnterStatus(int status);
    bool IsSilent() const;

    // TUpdaterAnswers.cpp: what the answers do.
    void TakeAnswer(const UpdateMode& mode, const char* message, int length);
    void Apply(const Answer& answer, const UpdateMode& mode, const ConsoleLine& line);
    void OnIdle(const UpdateMode& mode, const ConsoleLine& line);
    void OnOk(const UpdateMode& mode, const ConsoleLine& line);
    void OnNg(const UpdateMode& mode, const ConsoleLine& line);
    void OnEnd(const UpdateMode& mode, const ConsoleLine& line);

    // TUpdaterRun.cpp: the update that runs alone.
    bool LoadFile(const char* fileName);
    bool OpenMidi();
    void WaitForAnswers(ReadSet& set);
    void RenameImage() const;

    std::unique_ptr<TZaurusCom> zaurus;  // in update mode; opens nothing
    std::unique_ptr<TMidiCom> midi;      // in update mode
    std::unique_ptr<THexFile> hexFile;   // null when no image is loaded
    bool isBounded = false;              // BoundWaits was called; in update mode
    bool renameFile = false;             // after a finished update; in update mode
    char hexFileName[kPathSize] = {};    // of the image; empty when its path didn't fit
    RowSender rows;                      // of the image
    int retryCount = 0;                  // restarts after "Failed"
    unsigned long ngAddress = 0;         // of the latest "NG"; 0 when none is pending
    int restartError = 0;                // errno of the restart after Run; in update mode
    int updateStatus = Status::Idle;     // a Status
    int updateCounter = 0;               // seconds of silence; a wait ends above 30
    int errorCounter = 0;                // unwanted answers; an update ends above 1,024
    int flashModeCounter = 0;            // steps of Connect; flash mode is due at 0; in update mode
};
