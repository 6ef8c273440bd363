#pragma once

#include <map>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Machine.h"
#include "MidiPeer.h"
#include "OwnUnit.h"
#include "TMidiCom.h"
#include "TZaurusCom.h"
#include "UnitPaths.h"

using Lines = std::vector<std::string>;

// One pass of a conversation: an event, the step after it, and the effects of both.
struct Pass {
    std::string event;          // "nothing", "20 s" of silence, "9 unwanted" answers, or an answer
    Lines sent = {};            // to the CSP
    int result = 1;             // of the step: it goes on
    const char* reported = "";  // to the controller
};

// A machine's links, with the CSP and the controller at their other ends. One at a time, since the
// MIDI Patcher has one path.
struct Peers {
    Peers()
    {
        zaurus.SetZaurusId(controller.Other());
        midi.Set_connecttype(TMidiCom::kPiano);
        EXPECT_GE(midi.SetMidiDescriptor(kMidiPatcherSocket), 0);
        EXPECT_TRUE(patcher.Accept());
    }

    // Makes the passes and checks each. Returns everything printed meanwhile.
    std::string Converse(const std::vector<Pass>& passes)
    {
        TakeSent();
        testing::internal::CaptureStdout();
        for (const Pass& pass : passes) {
            SCOPED_TRACE(pass.event);
            const std::size_t before = controller.Received().size();
            Let(pass.event);
            EXPECT_EQ(step(), pass.result);
            EXPECT_EQ(TakeSent(), pass.sent);
            EXPECT_EQ(controller.Received().substr(before), pass.reported);
        }
        return testing::internal::GetCapturedStdout();
    }

    // Lets the event of a pass happen. An answer has no line end here.
    void Let(const std::string& event)
    {
        std::istringstream words(event);
        int count = 0;
        std::string unit;
        words >> count >> unit;
        if (count == 0 && event != "nothing")
            hear((event + "\r\n").c_str(), static_cast<int>(event.size()) + 2);
        for (int i = 0; i < count; i += unit == "s" ? kServerTimeout : 1) {
            unit == "s" ? countTimeout() : hear("?\r\n", 3);
            patcher.Received();  // makes room for what comes next
        }
    }

    // What the CSP has received since the last call, the lines in `names` by their names.
    Lines TakeSent()
    {
        Lines sent = patcher.TakeSent();
        for (std::string& each : sent)
            each = names.count(each) > 0 ? names[each] : each;
        return sent;
    }

    // Of the machine under test.
    std::function<int()> step;
    std::function<void()> countTimeout;
    std::function<void(const char* message, int length)> hear;

    TempDir dir;
    TMidiCom midi;
    TZaurusCom zaurus;
    MidiPeer patcher{ownUnit.Path(kMidiPatcherSocket)};
    Peer controller;
    std::map<std::string, std::string> names;
};
