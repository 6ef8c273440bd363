#pragma once

#include <functional>
#include <list>
#include <string>

#include <sys/types.h>

#include "Descriptor.h"
#include "VirtualTime.h"

// The clock of a unit, with which its owner gives the participants their turns. See VirtualTime.h.
class Clock {
public:
    // Listens at `path`. Throws std::runtime_error when it can't.
    explicit Clock(const std::string& path);
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

    // A process that will be a participant: time waits until it has connected or has ended.
    void Expect(pid_t process);

    // False once a participant has ended, at the latest at the next quiet point.
    bool Has(pid_t process) const;

    virtualtime::Moment Now() const { return now; }

    // The owner itself has used TCP: its packets arrive before anything else happens.
    void NoteTcp() { usesTcp = true; }

    // Lets time pass until the condition is true at a quiet point; it isn't checked before jumps
    // that are shorter than `step`. False when `limit` nanoseconds of virtual time have passed, or
    // at once when everyone waits without a deadline: then Report() lists who waits for what.
    // Throws std::runtime_error when a participant works for a minute of real time.
    bool RunUntil(const std::function<bool()>& isMet, virtualtime::Moment limit,
                  virtualtime::Moment step = 0);

    // Lets time pass by itself, `speed` times as fast as for people, to the end of the process.
    [[noreturn]] void RunPaced(unsigned speed);

    // Who waited for what when the last RunUntil failed, one line each.
    const std::string& Report() const { return report; }

private:
    struct Participant {
        pid_t process;
        Descriptor pidfd;   // readable once the process has ended
        Descriptor socket;  // nothing until it has connected
        virtualtime::Message wait;
    };
    using Place = std::list<Participant>::iterator;

    bool LetOneWork();
    void AwaitStarted();
    bool AcceptOne();
    bool Send(const Participant& to, virtualtime::Word word) const;
    bool Receive(Participant& from, virtualtime::Message& message);
    void Remove(Place each);
    void DeliverPackets();
    void SetTime(virtualtime::Moment moment);
    virtualtime::Moment NextDeadline() const;
    std::string Describe() const;

    std::string path;
    Descriptor listener;
    Descriptor timeFile;
    Descriptor echo;  // a socket that is connected to itself
    bool usesTcp = false;
    virtualtime::Moment now = 0;
    std::list<Participant> participants;  // in the order of their start
    Place next = participants.end();      // who is asked first in the next round
    std::string report;
};
