#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Status.h"

// The controller's protocol: groups of four bytes to the unit, lines of text back. A reply doesn't
// name the command that it belongs to, so each command knows its texts.

// What a line means to the command that waits for it.
enum class Effect {
    Nothing,   // none of its texts
    Marks,     // the unit has taken the command, which is no news for the user
    Starts,    // the unit has taken the command
    GoesOn,    // a sign of life of the work
    Succeeds,  // the result; the end follows
    Fails,     // likewise
    Ends,      // nothing more comes
    Confirms,  // a success and the end
    Copies,    // likewise, and a note about the copy may follow
    Answers,   // likewise, and the line is the requested one
    Refuses,   // a failure and the end
    Heads,     // the next line is the answer, whatever it contains
    Finds,     // likewise, and what is wrong with the file that was found may follow
};

struct Reply {
    std::string_view text;  // what the line begins with
    Effect effect;
};

// What is waited for once a command has gone out.
enum class Wait {
    Replies,  // the texts of its table
    Window,   // whatever arrives in the given time
    Close,    // everything until the connection ends
};

struct Query {
    std::string_view command;
    std::string_view help;
    Wait wait;
    std::vector<std::uint32_t> groups;  // each in the order of the wire
    std::vector<Reply> replies;
};

// One for each command that talks to the unit, in the order of the help text.
const std::vector<Query>& Queries();

// The one of that name, which there must be.
const Query& QueryOf(std::string_view command);

// The bytes that go out for it, in one write.
std::string GroupBytes(const Query& query);

// What the unit reports about work that takes long.
struct Progress {
    std::string_view phase;      // a word for a program: "connecting", "reading" ...
    std::optional<int> percent;  // where the line has it
};

constexpr std::string_view kReadingPhase = "reading";
constexpr std::string_view kWritingPhase = "writing";

std::optional<Progress> ProgressOf(std::string_view line);

// For a sentence: "reading, 43 %".
std::string TextOf(const Progress& progress);

// One command on its way: takes the unit's lines and knows when the command has ended, and how. A
// unit with --strict adds up to four lines to a failure, and to the result of a search or a copy:
// reasons, which are any text, and a note about a file that has no checksum.
class Exchange {
public:
    // To a command that waits for the close, all work is its own.
    explicit Exchange(const Query& sent)
        : query(&sent), state(sent.wait == Wait::Close ? State::Taken : State::Sent)
    {}

    // True when the line belongs to the command, which allows it some more time.
    bool Take(std::string_view line);

    bool IsMark(std::string_view line) const { return EffectOf(line) == Effect::Marks; }
    bool HasStarted() const { return state == State::Taken; }
    bool HasEnded() const { return state == State::Ended; }
    // The result is known, and the unit may add reasons.
    bool IsExplaining() const { return state == State::Explaining || state == State::Noting; }
    // A read-back has succeeded, whoever has started it: the server ends then.
    bool ServerEnds() const { return serverEnds; }

    // True for the line at which work ends, whoever has started it.
    static bool EndsWork(std::string_view line);

    // The phase that the line completes: a success of work doesn't always follow a 100 %. Empty for
    // any other line.
    std::string_view CompletedPhase(std::string_view line) const;

    // The progress of work that isn't this command's, and keeps the unit from taking it.
    const std::optional<Progress>& OtherWork() const { return otherWork; }

    // How the command has ended: by its texts, by the end of the connection or by silence.
    Status Result() const { return status.value_or(Status::Success); }
    Status ResultAt(bool close) const;

    // The reason for a result other than success, or what is wrong with a file that was found;
    // empty when the status is enough.
    const std::string& Reason() const { return reason; }

    // What the unit notes about a file without objecting to it; empty where there is nothing.
    const std::string& Note() const { return note; }

    // The requested line, where there is one.
    const std::string& Answer() const { return answer; }

private:
    enum class State {
        Sent,        // nothing shows that the unit has taken the command
        Headed,      // the next line is the answer
        Found,       // likewise, and what is wrong with the file may follow
        Taken,       // the unit works on it
        Explaining,  // it has ended, and reasons or a note may follow
        Noting,      // likewise, but no reasons
        Ended,
    };

    Effect EffectOf(std::string_view line) const;
    bool IsAnswerNext() const { return state == State::Headed || state == State::Found; }
    bool TakeKnown(Effect effect, std::string_view line);
    void TakeAnswer(std::string_view line);
    void Explain(std::string_view line);
    void Apply(Effect effect, std::string_view line);
    void EndWork();
    void End(State with, Status how, std::string_view why);

    const Query* query;
    State state;
    std::optional<Status> status;
    std::string reason;
    std::string note;
    int added = 0;  // lines of the unit in `reason` and `note`
    std::string answer;
    std::optional<Progress> otherWork;
    bool serverEnds = false;
};
