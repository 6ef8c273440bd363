#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FaultyUnit.h"

// A server in a faulty unit, with its piano and a controller.
class FaultyServer {
public:
    // What a command has added to the controller's text and to the log.
    struct Reply {
        std::string received;
        std::string logged;
        bool Has(const std::string& text) const
        {
            return Contains(received, text) || Contains(logged, text);
        }
    };

    // The server takes commands once its first read-back has failed, as it does with these options
    // of the piano.
    static const Unit::Words kFailingRead;

    // Starts both and waits for the end of the first read-back.
    FaultyServer(FaultyUnit& itsUnit, const Unit::Words& pianoOptions);

    bool IsRunning() { return server.IsRunning(); }
    // True when the fault has kept the server from the MIDI Patcher.
    bool LacksPatcher() const;

    // Sends groups and lets time pass until one of the texts has come, or long enough for any
    // command but an update.
    Reply Ask(const std::string& groups, const std::vector<const char*>& texts = {});
    // Lets the piano send lines while a controller is connected, and returns all that it received.
    std::string Say(const std::string& lines);

    // Checks that the text has gone both ways, as far as the fault allows.
    void CheckReported(const Reply& reply, const std::string& text) const;

    // Ends the server by a read-back from a new, good piano, and checks what must be true of every
    // end. Returns the outcome, with a word on that read-back's file when the fault has hit it.
    std::string End(const std::string& outcome);

    Process& piano;

private:
    void LetPass(std::chrono::nanoseconds time);
    Controller& Connected();
    std::string FileOutcome() const;

    FaultyUnit& unit;
    Process& server;
    std::unique_ptr<Controller> controller;
};
