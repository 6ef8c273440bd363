#pragma once

#include <chrono>
#include <initializer_list>
#include <string>

#include "Unit.h"

// What a fault can hit, by a part of the name that the journal has for it.
constexpr char kMidiLink[] = "i2c_server_sock";
constexpr char kRcLink[] = "rcseq_socket";
constexpr char kController[] = "tcp";
constexpr char kServerLog[] = "diagserver.log";

// How long a scenario waits for an end, in the unit's time.
constexpr std::chrono::seconds kEndLimit{6000};

bool Contains(const std::string& text, const std::string& piece);
// Throws std::runtime_error with the text when the condition is false.
void Check(bool condition, const std::string& otherwise);

// A unit in which one thing fails: a call of the program, "write:3:EIO", or the piano's link by an
// option of simpiano, "--die-after 12". Nothing does when the fault is empty.
class FaultyUnit : public Unit {
public:
    explicit FaultyUnit(const std::string& itsFault);

    Process& StartFaultyPiano(Words options);

    // True once the fault has come.
    bool HasFault() const { return !SeenFault().empty(); }
    // True when the fault has hit one of these, by a call of that kind if one is named.
    bool IsHit(std::initializer_list<const char*> subjects, const std::string& kind = "") const;

    // Waits for the end of a program and checks what every program must leave.
    void CheckEnd(Process& program) const;

private:
    // Such as "fault write #3 EIO on tcp"; empty until it comes.
    std::string SeenFault() const;

    std::string fault;
};
