#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Connection.h"
#include "Stage.h"

// A server under trial, with its piano and a controller.
class Server {
public:
    // A text as the controller gets it and as it stands in the log.
    struct Text {
        Text(const char* both) : told(both), logged(both) {}
        Text(std::string first, std::string second)
            : told(std::move(first)), logged(std::move(second))
        {}
        std::string told;
        std::string logged;
    };

    // What came back for a command: to the controller, and in the log.
    struct Reply {
        std::string told;
        std::string logged;

        // True when the text has come either way.
        bool Has(const Text& text) const;
    };

    // Starts both and waits for the end of the first read-back, which fails with these options of
    // the piano's, so that the server takes commands, unless they are others.
    static const Unit::Words kFailingRead;
    explicit Server(Stage& itsStage, const Unit::Words& pianoWords = kFailingRead);

    // False when the server has come to its end, with a read-back or without a MIDI Patcher.
    bool IsServing();
    // True when it has ended because the fault has kept it from the MIDI Patcher, and says so.
    bool IsWithoutPatcher() const;

    // Sends groups and waits for one of the texts, both ways, or until none can come any more.
    Reply Ask(const std::string& groups, const std::vector<Text>& texts);
    // Lets the piano say lines, with a controller connected.
    void Say(const std::string& lines);
    // Waits until the condition holds or, the fault having come to one of these, hardly can any
    // more.
    void WaitFor(const std::function<bool()>& hasCome, std::initializer_list<const char*> ways);
    // Everything that the present controller has got.
    std::string Received();

    // Holds that a text has gone both ways, unless the fault was in the way.
    void HoldTold(const Reply& reply, const Text& text) const;

    // Brings the server to its end, by a read-back from a new, good piano, for which the gate must
    // be open, and holds what must be true of every end. The outcome, with a word on the file of
    // that read-back when the fault has cut it.
    std::string End(const std::string& outcome);

    Process* piano;

private:
    bool IsFirstReadOver();
    bool HasPort() const;
    Controller& Connected();
    bool IsWhole(const Reply& reply, const std::vector<Text>& texts) const;
    void StartGoodPiano();
    void ReadToTheEnd();
    std::string WordOnFile() const;

    Stage& stage;
    Unit& unit;
    Process* server;
    std::unique_ptr<Controller> controller;
};
