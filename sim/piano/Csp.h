#pragma once

#include "Flash.h"
#include "PianoRecord.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <vector>

class Transcript;

// How the CSP misbehaves, and where CSPs differ from unit to unit. All off: a good CSP.
struct CspFaults {
    bool silent = false;                    // never sends anything
    std::vector<uint32_t> ngAt;             // refuses the record with the address, once each
    int failures = 0;                       // so many writes end in "Failed"
    int garbage = 0;                        // unwanted lines before each answer
    bool garbageEndless = false;            // nothing but unwanted lines
    std::optional<uint32_t> badChecksumAt;  // read: the record with the address
    std::optional<uint32_t> readStop;       // read: ends there, whatever range was requested
    uint32_t readCut = 0x1000;              // read: no record crosses a multiple of it
    bool noStatus = false;                  // no "Status:Flash Idle"
    bool allowGaps = false;                 // a write may leave a gap between two records
};

// The piano's CSP board, as its text console shows it, and its flash.
//
//   system                          CSP
//   BF 00 7F 00, BF 66 01 00        into flash mode (the 7F may stand last)
//   STATUS                          Status:Flash Idle
//
//   WRITE  :                        Start WRITE ?
//   records                         Erasing 90040000, WR:90040800, ..., OK 90042000 on each
//                                   multiple of 0x2000, NG 90041230 to request data again
//   the end-of-file record          END, then Finished or Failed
//
//   READ   :start:end:size          Start READ
//   NEXT   :                        records to the next multiple of 0x1000; after the last one the
//                                   end-of-file record
//   CANCEL :                        (idle again)
//   RESTART:                        (as after power-on)
//
// It knows no link: its owner passes lines in, and fetches lines with TakeNextLine as fast as the
// link accepts them.
class Csp {
public:
    Csp(Flash& itsFlash, Transcript& log) : flash(itsFlash), transcript(log) {}

    void SetFaults(const CspFaults& chosen) { faults = chosen; }
    // The flash goes to this file after each finished write; empty: nowhere.
    void SetSaveFile(const std::string& path) { saveFile = path; }

    // Off: silent, and everything but the flash is forgotten. Switching it on twice has no effect.
    void SetPower(bool on);
    // Lines that are still to be sent are lost with the link.
    void LoseLink();
    void TakeMidi(const std::vector<unsigned char>& group);
    void TakeLine(const std::string& line);
    // The next line to send, without a line end.
    std::optional<std::string> TakeNextLine();

private:
    enum class State { Playing, Idle, WriteReady, Writing, ReadReady, Reading };

    struct Command {
        const char* word;
        bool hasArguments;
        void (Csp::*act)(const std::string& line);
    };
    static const Command kCommands[];

    void OnStatus(const std::string& line);
    void OnWrite(const std::string& line);
    void OnRead(const std::string& line);
    void OnNext(const std::string& line);
    void OnCancel(const std::string& line);
    void OnRestart(const std::string& line);

    void TakeRecord(const std::string& line);
    void TakeLinearAddress(const PianoRecord& record);
    void TakeData(const PianoRecord& record);
    void TakeEndOfFile();
    bool IsRefusedByFault(uint32_t address, uint32_t end);
    void Refuse(uint32_t address);
    void Store(uint32_t address, const std::vector<unsigned char>& data);

    std::string TakeNextRecord();
    PianoRecord DataRecordAt(uint32_t address, uint32_t count) const;

    void Forget();
    void Answer(const std::string& line);

    Flash& flash;
    Transcript& transcript;
    CspFaults faults;
    std::string saveFile;

    bool powered = true;
    bool selected = false;  // the first of the two groups that enter flash mode has come
    State state = State::Playing;
    std::deque<std::string> answers;
    bool answered = false;  // the latest WRITE or READ, on the present link

    // A write.
    uint32_t upperAddress = 0;
    std::optional<uint32_t>
        expected;                    // where the next record begins; none after a new upper address
    std::optional<uint32_t> wanted;  // the refused address: everything is ignored until it comes
    std::set<uint32_t> erasedPages;
    bool outside = false;  // data outside the flash came

    // A read.
    uint32_t readAddress = 0;
    uint32_t readEnd = 0;
    uint32_t readStep = 0;
    std::optional<uint32_t> announced;  // the upper address last sent
    bool sending = false;               // from NEXT to the end of its stretch
};
