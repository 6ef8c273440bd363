#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Patcher.h"
#include "Peer.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"
#include "TempDir.h"

// What the update's log has got. It lies at a fixed path of the unit, so here it ends in memory.
extern std::string logged;

// The links of a machine with the CSP and the controller at their other ends. One at a time: waits
// of the machine cost no time and show up among what the CSP has got.
class Peers {
public:
    Peers();
    virtual ~Peers();
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    // What the CSP has got since the last look, each entry with a ";" behind it: a console line, a
    // MIDI group such as "BF 66 01 00", or the number of one of `rows`.
    std::string Got();
    // What an answer of the CSP, without its line end, makes the machine send.
    std::string After(const std::string& answer);
    // What the controller has been told since the last look.
    std::string Told();

    void NoteWait(unsigned microseconds);

    TempDir dir;
    TMidiCom midi;
    TZaurusCom zaurus;
    std::vector<std::string> rows;

private:
    virtual void Hear(const char* message, int length) = 0;
    void TakeFrames();

    Patcher patcher{dir.Path("patcher")};
    Peer controller;
    std::size_t framesTaken = 0;
    std::size_t bytesTold = 0;
    std::string line;
    std::string got;
};
