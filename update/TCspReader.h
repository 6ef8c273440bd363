#pragma once

#include <cstdint>

#include "Console.h"
#include "THexFile.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"

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
    TCspReader();
    ~TCspReader();
    TCspReader(const TCspReader&) = delete;
    TCspReader& operator=(const TCspReader&) = delete;

    // The range, `end` being the address behind its last byte, and the file to save to. An empty
    // file name stands for csp_param.hex in the working directory, and so does one over 255
    // characters: it isn't cut.
    void SetReaderParameter(unsigned long start, unsigned long end, const char* file);

    // Starts a read with status 0 and an empty image.
    void SetReaderStatus(int status);

    // -1 when no read is running.
    int GetReaderStatus() const;

    // Ends a read. What it has gathered stays until the next one.
    void ClearReaderStatus();

    // Counts one timeout of the server's loop, 10 seconds of silence.
    void IncReaderCounter();

    // One step. 1: call again on the next pass, also when no read is running; 0: finished and
    // saved; -1: failed. The status stays as it is behind the end.
    int UpdateStatus(TMidiCom* midi, TZaurusCom* zaurus);

    // One console line, ending in CR LF and a NUL. `length` isn't needed.
    void GetCSPMessage(TMidiCom* midi, TZaurusCom* zaurus, const char* message, int length);

private:
    static constexpr int kFileNameSize = 256;

    void StepConnect(TMidiCom* midi, TZaurusCom* zaurus);
    bool StepRequest(TMidiCom* midi, TZaurusCom* zaurus);
    void StepStartData(TMidiCom* midi);
    bool StepTransfer(TMidiCom* midi);
    void StepFinished();

    void EnterStatus(ConsoleStatus status);
    void ResetCounters();
    void OnConnectAnswer(TMidiCom* midi, const ConsoleLine& line);
    void OnRequestAnswer(const ConsoleLine& line);
    void OnRecord(TMidiCom* midi, TZaurusCom* zaurus, const ConsoleLine& line);
    void AskForMore(TMidiCom* midi, std::uint32_t address);
    void TellProgress(TZaurusCom* zaurus, std::uint32_t address) const;

    THexFile* hexFile;
    unsigned long readStart;
    unsigned long readEnd;
    char fileName[kFileNameSize];
    int readerStatus;
    int readerCounter;
    int errorCounter;
    int flashModeCounter;
    unsigned long lastAddress;
};
