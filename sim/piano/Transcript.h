#pragma once

#include "UnixSocket.h"

#include <string>

// midi.log, what passed on the MIDI Patcher's link, one event a line:
//
//   1700000000.123456 connect E1
//   1700000000.123789 > midi C0 BF 00 7F 00
//   1700000000.624001 > console STATUS
//   1700000000.624020 < console Status:Flash Idle
//
// ">" marks data from the system, "<" data to it. Each line is one write.
class Transcript {
public:
    // Appends to what an earlier process left. False when the file can't be opened, and with an
    // errno of EWOULDBLOCK while another process writes to it.
    bool Open(const std::string& path);

    // `text` may have any bytes; what isn't printable ASCII is shown as \xNN.
    void Note(const std::string& text);

    // Records a mistake of the system as "bad ..." and counts it.
    void Bad(const std::string& text);
    int BadCount() const { return badCount; }

private:
    Descriptor file;
    int badCount = 0;
};
