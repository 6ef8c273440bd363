#pragma once

#include "Connection.h"

// Simulates the MIDI Patcher for a test that controls each byte and each moment.
class MidiPeer : public Neighbour {
public:
    using Neighbour::Neighbour;

    // Sends lines of the console, without their line ends, in one write.
    bool SendLines(const std::vector<std::string>& lines) const
    {
        return Send(Stuff(EncodeLines(lines)));
    }

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
    // The frames of console lines one after the other, without stuffing.
    static std::string EncodeLines(const std::vector<std::string>& lines,
                                   const std::string& head = kHead);

private:
    std::size_t linesTaken = 0;
};
