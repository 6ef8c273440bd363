#pragma once

#include <cstdint>

#include "Console.h"
#include "THexFile.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"

// The firmware update: writes an Intel HEX image into the CSP's flash, row by row as the file has
// it. It has no thread and no timer of its own. The loop of the mode calls a step once per pass and
// hands it the answers of the CSP, which move the status:
//
//    Connect --Status:Flash Idle--> Request --Start WRITE ?--> StartData --> Transfer
//    Transfer --Finished--> Finished            Transfer --Failed--> Failed
//
// In update mode (Initialize, Run) the object owns its links, reports on standard output and in the
// update log, and restarts once after "Failed". In the server it gets the links with each call and
// reports to the controller; an image comes in through a search.
class TUpdater {
public:
    // Room for a path or a version text, its NUL included.
    static constexpr int kTextSize = 256;

    TUpdater();
    ~TUpdater();
    TUpdater(const TUpdater&) = delete;
    TUpdater& operator=(const TUpdater&) = delete;

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

    // One step. 1: call again on the next pass; 0: finished; -1: failed. The status stays as it is
    // behind the end. UpdateStatus serves update mode, UpdateStatusDiag the server.
    int UpdateStatus();
    int UpdateStatusDiag(TMidiCom* midi, TZaurusCom* zaurus);

    // Sends rows from `address` on (a seek first, unless sending has got just there) until the
    // address behind a row is a multiple of `blockSize`, or to the last row.
    void SendIntelHex(TMidiCom* midi, unsigned long address, int blockSize);

    // One answer line of the CSP, `length` its strlen. The first serves update mode, the second the
    // server.
    void GetCSPMessage(const char* message, int length);
    void GetCSPMessageDiag(TMidiCom* midi, TZaurusCom* zaurus, const char* message, int length);

    // Looks for a firmware file on the media, USB before CD before floppy, and loads the first that
    // exists. `version` gets its version text and has room for 256 bytes. 0, or -1 when there is
    // none or it can't be loaded.
    int SearchUpdateHex(char* version);

    // Loads the parameter file from the unit's disk. `stamp` gets its time of modification, as in
    // (2004/3/5/09:07), and has room for 256 bytes. 0 or -1.
    int SearchParameterHex(char* stamp);

    // Loads a file in place of the present image, which is gone whatever happens. `version` gets
    // the version text (256 bytes of room), unless it is null. Starts nothing. 0 or -1.
    int LoadIntelHex(const char* path, char* version);

private:
    // Where an answer came from: the modes differ in links, texts and a few rules.
    struct Setting {
        bool inServer;
        TMidiCom* midi;
        TZaurusCom* zaurus;  // null in update mode
    };

    bool StoreFileName(const char* path);
    bool OpenMidi();
    void ReadAnswers(char* buffer);
    void DropImage();
    int ExpandAndLoad(const char* source, char* version);

    void StepConnect();
    bool StepRequest();
    void StepStartData();
    bool StepTransfer();
    void StepFinished();
    int StepFailed();
    void RenameImage();

    void EnterStatus(ConsoleStatus status);
    void AskForWrite(TMidiCom* link);
    void BeginData(TMidiCom* link);

    bool TrackRow();
    void Seek(std::uint32_t address);
    bool SendRow(TMidiCom* link);
    void SendRowWithItsBase(TMidiCom* link);

    void OnAnswer(const Setting& setting, const char* message, int length);
    void OnTransferAnswer(const Setting& setting, const ConsoleLine& line, int length);
    void OnOk(const Setting& setting, const ConsoleLine& line);
    void OnRefused(const Setting& setting, const ConsoleLine& line);
    void OnClosing(const Setting& setting, const char* trace);
    void TellProgress(TZaurusCom* controller, std::uint32_t address) const;

    TZaurusCom* zaurus;
    TMidiCom* midi;
    THexFile* hexFile;
    bool renameFile;
    char hexFileName[kTextSize];
    unsigned long upperAddress;
    int lineIndex;
    bool sending;
    int retryCount;
    unsigned long sendedAddress;
    unsigned long ngAddress;
    int updateStatus;
    int updateCounter;
    int errorCounter;
    int flashModeCounter;
};
