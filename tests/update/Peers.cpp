#include "Peers.h"

#include <gtest/gtest.h>

#include "HexText.h"

// A frame is E2 E0 type 06 kind data[5]; kind 3n is text of n bytes, 37 the end of the line.
Lines Peers::Sent()
{
    Lines sent;
    const Lines frames = patcher.Frames();
    for (; framesTaken < frames.size(); ++framesTaken) {
        const std::string& frame = frames[framesTaken];
        const std::string data = frame.substr(5);
        if (frame[4] == '\xC0') {
            sent.push_back(ToHex(data.substr(1, 3) + data[0]));
        } else if (frame[4] != '\x37') {
            line += data.substr(0, static_cast<unsigned char>(frame[4]) & 7U);
        } else {
            const auto named = names.find(line);
            sent.push_back(named == names.end() ? line : named->second);
            line.clear();
        }
    }
    return sent;
}

Lines Peers::After(const std::string& answer)
{
    const std::string message = answer + "\r\n";
    Sent();
    Hear(message.c_str(), static_cast<int>(message.size()));
    return Sent();
}

void Peers::SendUnwanted(int answers)
{
    for (int i = 0; i < answers; ++i) {
        Hear("?\r\n", 3);
        patcher.Received();  // makes room for what the next one sends
    }
}

std::string Peers::Told()
{
    std::string told = controller.Received().substr(bytesTold);
    bytesTold += told.size();
    return told;
}

void Peers::OpenMidi()
{
    midi.Set_connecttype(TMidiCom::kPiano);
    EXPECT_GE(midi.SetMidiDescriptor(kMidiPatcherSocket), 0);
    EXPECT_TRUE(patcher.Accept());
}
