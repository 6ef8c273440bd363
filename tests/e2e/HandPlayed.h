#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Scene.h"

// A server between peers that are all simulated by the test, so that each byte and each moment is
// the test's own. It begins where the server asks for the CSP's state, its first read-back under
// way.
class HandPlayed {
public:
    // `arrange` changes the unit before the server starts in it.
    explicit HandPlayed(const std::function<void(Unit&)>& arrange = nullptr);

    // Lets the first read-back fail, so that the controller's commands are taken.
    void Open();
    // A new controller in place of the last, once the server has accepted it. Returns the last.
    std::unique_ptr<Controller> Connect();

    // Groups of the controller in one write.
    void Send(const std::string& groups) const;
    // One message of the piano's side: its frames in one block, or any bytes. The server has read
    // all of it at the end.
    void Say(const std::string& frames);
    void SayBytes(const std::string& bytes);
    void SayLines(const std::vector<std::string>& lines);

    // Waits until the server is done with everything that was sent to it before.
    void Settle();

    // What the server has done since the last call, once it is settled: texts and messages to the
    // controller; MIDI frames, "C0 00 90 3C 40 00\n" each (kind and data); entries of the log.
    std::string TakeReplies();
    std::string TakeFrames();
    std::string TakeLog();

    Unit unit;
    Patcher patcher;
    Neighbour rcServer;
    Process* server;
    std::unique_ptr<Controller> controller;

private:
    std::string SayMark();

    std::size_t replySize = 0;
    std::size_t frameCount = 0;
    std::size_t logSize = 0;
    int marks = 10000;
};

// The frames of console lines, one after the other.
std::string Frames(const std::vector<std::string>& lines, const std::string& head = Patcher::kHead);
