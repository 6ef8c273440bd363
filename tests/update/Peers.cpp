#include "Peers.h"

#include <algorithm>
#include <utility>

#include <unistd.h>

#include <gtest/gtest.h>

#include "Bytes.h"
#include "Log.h"

std::string logged;

static Peers* present = nullptr;

bool AddLogFile(const char* /*path*/, const char* text)
{
    logged += text;
    return true;
}

bool ResetLogFile(const char* /*path*/, int /*linesToKeep*/)
{
    return true;
}

extern "C" int usleep(useconds_t microseconds)
{
    present->NoteWait(microseconds);
    return 0;
}

Peers::Peers()
{
    present = this;
    logged.clear();
    midi.Set_connecttype(225);
    EXPECT_GE(midi.SetMidiDescriptor(dir.Path("patcher").c_str()), 0);
    EXPECT_TRUE(patcher.Accept());
    zaurus.SetZaurusId(controller.Other());
}

Peers::~Peers()
{
    present = nullptr;
}

std::string Peers::Got()
{
    TakeFrames();
    return std::exchange(got, "");
}

std::string Peers::After(const std::string& answer)
{
    const std::string message = answer + "\r\n";
    Got();
    Hear(message.c_str(), static_cast<int>(message.size()));
    return Got();
}

std::string Peers::Told()
{
    std::string told = controller.Received().substr(bytesTold);
    bytesTold += told.size();
    return told;
}

void Peers::NoteWait(unsigned microseconds)
{
    TakeFrames();
    got += "usleep " + std::to_string(microseconds) + ";";
}

void Peers::TakeFrames()
{
    const std::vector<std::string> frames = patcher.Frames();
    for (; framesTaken < frames.size(); ++framesTaken) {
        const std::string& frame = frames[framesTaken];
        const std::string data = frame.substr(5);
        if (frame[4] == '\xC0') {
            got += ToHex(data.substr(1, 3) + data[0]) + ";";
        } else if (frame[4] != '\x37') {
            line += data.substr(0, frame[4] & 7U);
        } else {
            const auto row = std::find(rows.begin(), rows.end(), line);
            got += (row == rows.end() ? line : std::to_string(row - rows.begin())) + ";";
            line.clear();
        }
    }
}
