#pragma once

#include "Connection.h"

// Simulates the MIDI Patcher for a test that controls each byte and each moment.
class MidiPeer : public Neighbour {
public:
    using Neighbour::Neighbour;

    // Sends lines of the console, without their line ends, in one write.
    bool SendLines(const std::vector<std::string>& lines) const;

    // The frames received, without stuffing and connect sequence.
    std::vector<std::string> Frames();
    // What they are: MIDI groups as the data of their frames, "7F BF 00 00 00", and console lines,
    // each ended by its end frame. TakeSent has only those since its last call.
    std::vector<std::string> Lines();
    std::vector<std::string> TakeSent();
    bool WaitForLine(const std::string& line);

    // The first three bytes of a frame to the program.
    static const std::string kHead;
    static std::string Stuff(const std::string& block);

private:
    std::size_t linesTaken = 0;
};

// The frames of console lines one after the other, without stuffing.
std::string Frames(const std::vector<std::string>& lines,
                   const std::string& head = MidiPeer::kHead);
