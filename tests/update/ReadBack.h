#pragma once

#include <string>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Peers.h"
#include "TCspReader.h"

const std::string kBase = ":02000004900466";
const std::string kEndOfFile = ":00000001FF";

inline std::string Base(unsigned upper)
{
    return Record(4, 0, {static_cast<char>(upper >> 8U), static_cast<char>(upper)});
}

// A read-back to param.hex.
class ReadBack : public Peers {
public:
    ReadBack()
    {
        OpenMidi();
        reader.SetReaderParameter(0, 0, dir.Path("param.hex").c_str());
        reader.SetReaderStatus(Connect);
    }

    int Step() { return reader.UpdateStatus(&midi, &zaurus); }
    // So many times ten seconds without an answer.
    void Wait(int timeouts)
    {
        for (int i = 0; i < timeouts; ++i)
            reader.IncReaderCounter();
    }

    // To a status, by the answers that lead there.
    void GoTo(int status)
    {
        Step();
        if (status == Idle)
            reader.ClearReaderStatus();
        if (status >= Request)
            After("Status:Flash Idle");
        if (status >= StartData) {
            Step();
            After("Start READ");
        }
        if (status >= Transfer)
            Step();
        if (status >= Finished)
            After(status == Finished ? kEndOfFile : "");
        EXPECT_EQ(reader.GetReaderStatus(), status);
        Sent();
        Told();
    }

    TCspReader reader;

private:
    void Hear(const char* message, int length) override
    {
        reader.GetCSPMessage(&midi, &zaurus, message, length);
    }
};
