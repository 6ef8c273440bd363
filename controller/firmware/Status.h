#pragma once

#include <string>
#include <utility>

// How a command ends: the exit status of the program. Help and manual show this table.
enum class Status {
    Success = 0,
    Failed = 1,
    Usage = 2,
    Connection = 3,
    NoAnswer = 4,
    ServerEnded = 5,
};

// How a command has ended, and a sentence about it.
struct Outcome {
    Outcome(Status itsStatus = Status::Success, std::string itsReason = {},
            std::string itsAnswer = {})
        : status(itsStatus), reason(std::move(itsReason)), answer(std::move(itsAnswer))
    {}

    bool IsSuccess() const { return status == Status::Success; }

    Status status;
    std::string reason;  // of a failure; none for errors in a file or different images
    std::string answer;  // the line requested from the unit, where there is one
    std::string note;    // of the unit about a file, for what doesn't show the unit's lines
};

struct StatusMeaning {
    Status status;
    const char* text;
};

constexpr StatusMeaning kStatusMeanings[] = {
    {Status::Success, "success; a clean file; equal images"},
    {Status::Failed, "the unit or the command failed; errors in a file; different images"},
    {Status::Usage, "wrong usage, or a file that can't be read"},
    {Status::Connection, "no connection, or a lost one"},
    {Status::NoAnswer, "no answer, or a unit that is still busy"},
    {Status::ServerEnded,
     "the server has ended after a read-back, as it does when the piano is well"},
};
