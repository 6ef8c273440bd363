#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Machine.h"
#include "THexFile.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"
#include "UnitPaths.h"

class ConsoleLine;
class HexRecord;

// The read-back: reads the CSP's parameter flash over the console and saves it as an Intel HEX
// file. It has no thread and no timer of its own. The loop of the server calls a step once per pass
// and hands it the lines of the CSP, which move the status:
//
//    Connect --Status:Flash Idle--> Request --Start READ--> StartData --> Transfer
//    Transfer --end-of-file record--> Finished     Transfer --refused record--> Failed
//
// Nothing is written to disk before the last record has been accepted.
class TCspReader {
public:
    TCspReader() = default;
    ~TCspReader() = default;
    TCspReader(const TCspReader&) = delete;
    TCspReader& operator=(const TCspReader&) = delete;

    // The file to save to; an empty name stands for csp_param.hex in the working directory, and so
    // does one over 255 characters: it isn't cut. The range, `end` being the address that follows
    // its last byte, never reaches the CSP: the request sets it to all of the parameter flash. It
    // counts only when the CSP starts to send before it got the request.
    void SetReaderParameter(unsigned long start, unsigned long end, const char* file);

    // From the next read on, the parameter flash is the only range, and every record brings the
    // read nearer to its end: one without data, outside the range or back in it is refused, and so
    // are two upper addresses in a row, and characters after a checksum.
    void RequireProgress() { mustProgress = true; }

    // Where the next data record of the read must begin: before the first one, the range does.
    std::uint32_t GetNextAddress() const;

    // Starts a read with status 0 and an empty image.
    void SetReaderStatus(int status);

    // -1 when no read is running.
    int GetReaderStatus() const;

    // Ends a read. What it has gathered stays until the next one.
    void ClearReaderStatus();

    // The records that the read has gathered, as they are saved.
    std::string ReceivedText() const;

    // Counts one timeout of the server's loop, 10 seconds of silence.
    void IncReaderCounter();

    // One step. 1: call again on the next pass, also when no read is running; 0: finished and
    // saved; -1: failed. After its end a read keeps its status.
    int UpdateStatus(TMidiCom* midi, TZaurusCom* zaurus);

    // One console line, ending in CR LF and a NUL. `length` isn't needed.
    void GetCSPMessage(TMidiCom* midi, TZaurusCom* zaurus, const char* message, int length);

private:
    // A row of what a line does.
    struct Answer;
    static const Answer kAnswers[];  // the first that fits decides

    Step TakeStep(TMidiCom* midi, TZaurusCom* zaurus);
    Step StepConnect(TMidiCom* midi, TZaurusCom* zaurus);
    Step StepRequest(TMidiCom* midi, TZaurusCom* zaurus);
    Step StepStartData(TMidiCom* midi);
    Step StepTransfer(TMidiCom* midi);
    Step StepFinished();
    Step EndOfStep(TMidiCom* midi) const;

    void EnterStatus(int status);
    void ResetCounters();
    bool IsSilent() const;

    void OnIdle(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line);
    void OnNotIdle(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line);
    void OnStart(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line);
    void OnUnwanted(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line);
    void OnRecord(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line);
    bool TakeProgress(const HexRecord& record);
    bool IsNextData(const HexRecord& record) const;
    bool IsNextUpperAddress(const HexRecord& record) const;
    void OnAccepted(TMidiCom* midi, TZaurusCom* zaurus, std::uint32_t address);
    void OnRefused(TMidiCom* midi, const ConsoleLine& line);
    void AskForMore(TMidiCom* midi, std::uint32_t address);
    void ReportProgress(TZaurusCom* zaurus, std::uint32_t address) const;

    std::unique_ptr<THexFile> hexFile = std::make_unique<THexFile>();  // gathers the records
    unsigned long readStart = 0;                                       // first address of the read
    unsigned long readEnd = 0;                                         // follows its last address
    char fileName[kPathSize] = {};    // to save to; empty for the default
    int readerStatus = Status::Idle;  // a Status
    int readerCounter = 0;            // seconds of silence; a wait ends above 30
    int errorCounter = 0;             // unwanted answers; a read ends above 1,024
    int flashModeCounter = 0;         // steps of Connect; flash mode is due at 0
    int blockCounter = 0;             // records that ended on this block; the next is due at 0
    unsigned long lastAddress = 0;    // the latest that standard output shows
    bool mustProgress = false;        // no record may leave the read where it is
    bool wantsData = false;           // the last record was an upper address
};
