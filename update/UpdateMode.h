#pragma once

#include "Console.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"

// A mode of the update: its links, where it reports, and what it does in its own way. TUpdater has
// everything that the two modes share.
//
// Alone, the update prints and logs, and it tries again by itself. In the server it reports to the
// controller, which can search the file again and start anew, and it never waits, since the loop
// serves others, too.
struct UpdateMode {
    static UpdateMode Alone(TMidiCom* midi);
    static UpdateMode InServer(TMidiCom* midi, TZaurusCom* zaurus);

    // Each serves one mode; in the other it does nothing.
    void PrintAlone(const char* text) const;
    void LogAlone(const char* text) const;  // in the update log
    void PrintInServer(const char* text) const;
    void SendInServer(const char* text) const;  // to the controller

    bool inServer = false;
    TMidiCom* midi = nullptr;      // to the CSP
    TZaurusCom* zaurus = nullptr;  // to the controller; null when alone

    // The values are those of the update that runs alone; InServer sets the others.
    int restarts = 1;                         // after "Failed"
    unsigned flashModeWait = kFlashModeWait;  // microseconds; 0: none
    bool spacesFlashMode = true;              // false: every step of Connect sends it
    bool resendsRefused = true;               // after silence; false: silence ends the update
    bool takesAnyOk = true;                   // false: only the answer to the last block
    bool takesBusy = true;                    // false: the lines of a busy CSP are unwanted
    bool anyAnswerEndsSilence = true;         // false: only one that shows progress
};
