#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "UniqueFd.h"

using Clock = std::chrono::steady_clock;

// The connection to the unit, cut into lines.
class Link {
public:
    // The outcome of Next.
    enum class Arrival { Line, Closed, Lost, Silence, Interrupted };

    // Takes each piece of bytes on the wire, with '>' for the way to the unit and '<' back.
    using Watcher = std::function<void(char direction, std::string_view bytes)>;

    explicit Link(Watcher watching) : watch(std::move(watching)) {}
    ~Link() { Close(); }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // False with the reason in `error`. There must be no connection. While there is one, Ctrl-C is
    // an event; otherwise it ends the program, as ever.
    bool Connect(const std::string& host, const std::string& port, Clock::duration limit,
                 std::string& error);
    void Close();

    // Sends the bytes in one write, since the unit cuts each of its reads into groups anew.
    bool Send(const std::string& bytes) const;

    // Waits for a line until `deadline`, and longer for one that has begun while its bytes arrive.
    // A text without a line end counts as a line when nothing follows it. A line over the limit is
    // cut and `isCut` set.
    Arrival Next(Clock::time_point deadline, std::string& line, bool& isCut);

    // The system's reason for Arrival::Lost; empty when the unit closed the connection with bytes
    // that it had not read.
    const std::string& LostBy() const { return lostBy; }

private:
    enum class Ready { Bytes, Interrupt, Nothing };

    void WatchInterrupt();
    Ready Await(Clock::time_point deadline) const;
    bool TakeLine(std::string& line, bool& isCut);
    void Fill();
    void Keep(std::string_view bytes);

    UniqueFd descriptor{-1};
    UniqueFd interrupt{-1};
    Watcher watch;
    bool closed = false;
    bool lost = false;  // in which case it is closed, too
    std::string lostBy;
    std::string received;         // not shown yet; never longer than a line and a read
    bool skipping = false;        // in the part of a long line that isn't shown
    Clock::time_point lastBytes;  // when some arrived
    Clock::time_point lineBegin;  // when the first of those not shown yet did
};
