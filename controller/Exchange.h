#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The controller's protocol: groups of four bytes to the unit, lines of text back. A reply doesn't
// name the command that it belongs to, so each command knows its texts.

// The exit statuses.
enum class Status {
    Success = 0,
    UnitFailed = 1,
    Usage = 2,
    Connection = 3,
    NoAnswer = 4,
};

// What a line means to the command that waits for it.
enum class Effect {
    Nothing,   // none of its texts
    Starts,    // the unit has taken the command
    GoesOn,    // a sign of life of the work
    Succeeds,  // the result; the end follows
    Fails,     // likewise
    Ends,      // nothing more comes
    Answers,   // a success and the end
    Refuses,   // a failure and the end
    Heads,     // the next line is the answer, whatever it says
};

struct Reply {
    std::string_view text;  // what the line begins with
    Effect effect;
};

// What is waited for once a command has gone out.
enum class Wait {
    Replies,  // the texts of its table
    Taken,    // nothing but the unit's having read it
    Window,   // whatever comes in the time given
    Close,    // everything until the connection ends
};

struct Command {
    std::string_view name;
    std::string_view help;
    Wait wait;
    std::uint32_t group;  // its bytes in the order of the wire; 0 for none
    std::vector<Reply> replies;
};

// The commands, in the order of the help text.
const std::vector<Command>& Commands();

// Null when there is no such command. Names of two words have one blank between them.
const Command* FindCommand(std::string_view name);

// The bytes that go out for it.
std::string GroupBytes(const Command& command);

// The percentage that the line ends with, if it does.
std::optional<int> PercentOf(std::string_view line);

// One command on its way: takes the unit's lines and knows when the command has ended, and how.
class Exchange {
public:
    explicit Exchange(const Command& sent) : command(sent) {}

    // True when the line belongs to the command, which allows it some more time.
    bool Take(std::string_view line);

    bool HasEnded() const { return ended; }
    bool HasStarted() const { return started; }

    // How the command has ended: by its texts, by the end of the connection or by silence.
    Status Result() const { return status.value_or(Status::Success); }
    Status ResultAt(bool close) const;

    // The reason for a result other than success; empty when the status says it all.
    const std::string& Reason() const { return reason; }

private:
    void End(Status with, std::string_view why);
    void SetResult(Effect effect, std::string_view line);

    const Command& command;
    std::optional<Status> status;
    std::string reason;
    bool started = false;
    bool headed = false;
    bool ended = false;
};
