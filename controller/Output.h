#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "Exchange.h"
#include "Link.h"

// What the user, or the program that reads this one's output, gets to see of a conversation. The
// unit's text is not trusted: bytes outside printable ASCII are escaped.
class Output {
public:
    enum class Form {
        Plain,   // a line for each line
        Bar,     // a terminal: progress becomes a bar that moves
        Json,    // an object for each event
        Answer,  // nothing but an answer
        Nothing,
    };

    explicit Output(Form chosen) : form(chosen) {}

    // `isCut` when the unit's line was longer than what is shown. `completed` is the phase that
    // ends with this line and is shown with 100 % first, unless it has been; empty for none.
    void ShowLine(std::string_view line, bool isCut, std::string_view completed);

    // What keeps the unit from taking a command.
    void ShowBusy(const Progress& progress);

    // Ends the line of a progress bar.
    void EndBar();

    // Where nothing else is shown.
    void ShowAnswer(const std::string& answer);

private:
    void ShowProgress(const Progress& progress, std::string_view line);
    void ShowBar(int percent);
    void Complete(std::string_view phase);

    Form form;
    Progress last = {};
    Clock::time_point begin;  // of the phase, as far as it was seen
    int firstPercent = 0;     // at that time
    bool barStands = false;
};
