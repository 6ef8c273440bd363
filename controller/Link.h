#pragma once

#include <chrono>
#include <string>
#include <string_view>

using Clock = std::chrono::steady_clock;

// The connection to the unit, cut into lines.
class Link {
public:
    // What Next has come to.
    enum class Event { Line, Closed, Silence };

    Link() = default;
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // False with the reason in `error`.
    bool Connect(const std::string& host, const std::string& port, Clock::duration limit,
                 std::string& error);

    // Sends the bytes in one write, since the unit cuts each of its reads into groups anew.
    bool Send(const std::string& bytes) const;

    // Tells the unit that nothing more is coming. It closes the connection when it has read
    // everything.
    void EndSending() const;

    // Waits for a line until `deadline`. A text without a line end counts as a line when nothing
    // follows it. A line over the limit is cut and `isCut` set.
    Event Next(Clock::time_point deadline, std::string& line, bool& isCut);

private:
    bool TakeLine(std::string& line, bool& isCut);
    bool Fill();
    void Keep(std::string_view bytes);

    int descriptor = -1;
    bool closed = false;
    std::string received;   // not shown yet; never longer than a line and a read
    bool skipping = false;  // in the part of a long line that isn't shown
};
