#pragma once

#include <string>
#include <vector>

#include "Connection.h"

// A MIDI Patcher inside the test, for looking at bytes and sending any that a test wants. The
// program sends frames of 10 bytes, E2 E0 type 06 kind data[5], and gets frames of 9, without the
// E0. FE is doubled in both, and FE FF ends a block.
class Patcher : public Neighbour {
public:
    using Neighbour::Neighbour;

    // Sends frames of 9 bytes, stuffed, in one write.
    bool SendFrames(const std::vector<std::string>& frames) const;
    // Sends lines of the console, without their line ends, in one write.
    bool SendLines(const std::vector<std::string>& lines, const std::string& head = kHead) const;

    // The frames that came, without stuffing and connect sequence.
    std::vector<std::string> Frames();
    // The console lines among them, each ended by its end frame.
    std::vector<std::string> Lines();
    bool WaitForLine(const std::string& line);

    // The first three bytes of a frame to the program.
    static const std::string kHead;
    static std::string Stuffed(const std::string& block);
    static std::vector<std::string> ConsoleFrames(const std::string& line, const std::string& head);
};
