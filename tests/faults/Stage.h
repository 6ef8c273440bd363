#pragma once

#include <chrono>
#include <initializer_list>
#include <string>

#include "Trial.h"
#include "Unit.h"
#include "Violation.h"

// What a fault can lie on, by a part of the name that the journal gives it.
constexpr char kMidiLink[] = "i2c_server_sock";
constexpr char kRcLink[] = "rcseq_socket";
constexpr char kController[] = "tcp";
constexpr char kDspDevice[] = "PciDsp";  // a piano that is off and stays so is silent
constexpr char kServerLog[] = "diagserver.log";
constexpr char kUpdateLog[] = "cspupdate.log";

// How long a trial waits for what must come, in the unit's time.
constexpr std::chrono::seconds kEndLimit{6000};

inline bool Holds(const std::string& text, const std::string& piece)
{
    return text.find(piece) != std::string::npos;
}

std::size_t CountOf(const std::string& text, const std::string& piece);

// The unit of one trial, and what has gone wrong in it.
class Stage {
public:
    explicit Stage(const Trial& itsTrial);

    Unit unit;

    // The piano's options in this trial, with those that the road needs.
    Unit::Words PianoWords(const Unit::Words& own) const;

    // True once the fault of the trial has come.
    bool HasFault() const;
    // True when the fault has come to one of these.
    bool IsHit(std::initializer_list<const char*> subjects) const;
    // ... and to this kind of call.
    bool IsHit(const std::string& kind, const std::string& subject) const;
    // ... and has cut it short.
    bool IsShort(const std::string& kind, const std::string& subject) const;

    // Holds what must be true of every program that has come to its end, and waits for that.
    void HoldEnd(Process& program) const;
    // ... and of a server without a port, which nothing but a signal ends.
    void HoldTermination(Process& program) const;

private:
    struct Fault {
        std::string kind;
        std::string error;
        std::string subject;
    };
    Fault Seen() const;
    static void HoldNoReport(const Process& program);

    const Trial& trial;
};
