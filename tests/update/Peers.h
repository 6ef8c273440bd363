#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Connection.h"
#include "MidiPeer.h"
#include "OwnUnit.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"
#include "TempDir.h"

using Lines = std::vector<std::string>;

// The links of a machine with the CSP and the controller at their other ends. One at a time.
class Peers {
public:
    virtual ~Peers() = default;
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    // What the CSP has got since the last call: console lines, those in `names` by their names, and
    // MIDI groups such as "BF 66 01 00".
    Lines Sent();
    // What an answer of the CSP, without its line end, makes the machine send.
    Lines After(const std::string& answer);
    // Lets the CSP send so many unwanted answers.
    void SendUnwanted(int answers);
    // What the controller has got since the last call.
    std::string Told();

    TempDir dir;
    TMidiCom midi;
    TZaurusCom zaurus;

protected:
    Peers() { zaurus.SetZaurusId(controller.Other()); }
    // Connects `midi`.
    void OpenMidi();

    MidiPeer patcher{ownUnit.Path("home/i2c_server_sock")};
    std::map<std::string, std::string> names;

private:
    virtual void Hear(const char* message, int length) = 0;

    Peer controller;
    std::size_t framesTaken = 0;
    std::size_t bytesTold = 0;
    std::string line;
};
