#pragma once

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Peers.h"
#include "TUpdater.h"

enum Mode { Alone, InServer };

// The words of an image's rows: "9004:" is a base record with that upper address, "41FF4" a record
// of 12 bytes at the low 16 bits, "end" the end-of-file record, "-" an empty row, "other" a record
// without an address. Blocks of this one end after a record, at a 64 KiB boundary and at the end.
constexpr char kImage[] = "9004: 40000 41FF4 42000 43FF4 44000 4FFF4 9005: 50000 51FF4 end";

// An update of the image that the words stand for.
class Update : public Peers {
public:
    explicit Update(Mode chosen, const std::string& image = kImage) : mode(chosen)
    {
        std::istringstream words(image);
        std::string file;
        for (std::string word; words >> word;) {
            const std::string row = Row(word);
            names[row] = word;
            file += row + "\r\n";
        }
        path = dir.Write("image.hex", file);
        if (mode == InServer) {
            OpenMidi();
            Restart();
        } else {
            EXPECT_EQ(updater.Initialize(false, 0, path.c_str(), TMidiCom::kPiano), 0);
            EXPECT_TRUE(patcher.Accept());
        }
    }

    // To the begin of an update, which in the server comes after a search.
    void Restart()
    {
        if (mode == InServer) {
            EXPECT_EQ(updater.LoadIntelHex(path.c_str(), nullptr), 0);
        }
        EXPECT_TRUE(updater.SetUpdateStatus(Connect));
    }

    int Step()
    {
        return mode == InServer ? updater.UpdateStatusDiag(&midi, &zaurus) : updater.UpdateStatus();
    }
    // So many times ten seconds without an answer.
    void Wait(int timeouts)
    {
        for (int i = 0; i < timeouts; ++i)
            updater.IncUpdateCounter();
    }
    // So many unwanted answers.
    void Refuse(int answers)
    {
        for (int i = 0; i < answers; ++i)
            EXPECT_EQ(After("?"), Lines{});
    }
    // From the request to the first block, which it returns.
    Lines Begin()
    {
        updater.SetUpdateStatus(Request);
        After("Start WRITE ?");
        EXPECT_EQ(Step(), 1);
        EXPECT_EQ(updater.GetUpdateStatus(), Transfer);
        return Sent();
    }

    TUpdater updater;

private:
    static std::string Row(const std::string& word)
    {
        if (word == "end" || word == "-" || word == "other")
            return word == "end" ? ":00000001FF" : word == "-" ? "" : Record(5, 0, "abcd");
        constexpr int kHex = 16;
        const auto number = std::stoul(word, nullptr, kHex);
        if (word.back() == ':')
            return Record(4, 0, {static_cast<char>(number >> 8U), static_cast<char>(number)});
        return Record(0, number % 0x10000, std::string(12, static_cast<char>(number >> 16U)));
    }
    void Hear(const char* message, int length) override
    {
        if (mode == InServer)
            updater.GetCSPMessageDiag(&midi, &zaurus, message, length);
        else
            updater.GetCSPMessage(message, length);
    }

    Mode mode;
    std::string path;
};
