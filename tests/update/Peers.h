#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Console.h"
#include "OwnUnit.h"
#include "Patcher.h"
#include "Peer.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"
#include "TempDir.h"

using namespace Status;
using Lines = std::vector<std::string>;

// The links of a machine with the CSP and the controller at their other ends. One at a time.
class Peers {
public:
    virtual ~Peers() = default;
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    // What the CSP has got since the last look: console lines, those in `names` by their names, and
    // MIDI groups such as "BF 66 01 00".
    Lines Sent();
    // What an answer of the CSP, without its line end, makes the machine send.
    Lines After(const std::string& answer);
    // What the controller has got since the last look.
    std::string Told();

    TempDir dir;
    TMidiCom midi;
    TZaurusCom zaurus;

protected:
    Peers() { zaurus.SetZaurusId(controller.Other()); }
    // Connects `midi`.
    void OpenMidi();

    Patcher patcher{ownUnit.Path("home/i2c_server_sock")};
    std::map<std::string, std::string> names;

private:
    virtual void Hear(const char* message, int length) = 0;
    void TakeFrame(const std::string& frame);

    Peer controller;
    std::size_t bytesTaken = 0;
    std::size_t bytesTold = 0;
    std::string block;
    std::string line;
    Lines sent;
};

inline Lines operator+(Lines lines, const Lines& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}
