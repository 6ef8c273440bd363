#pragma once

#include <string>
#include <string_view>

#include "Exchange.h"

// What the user, or the program that reads this one's output, gets to see. The unit's text is not
// trusted: bytes outside printable ASCII are escaped.
class Output {
public:
    enum class Form {
        Plain,  // a line for each line
        Bar,    // a terminal: lines with a percentage become a bar that moves
        Json,   // an object for each line, and one for the result
    };

    explicit Output(Form chosen) : form(chosen) {}

    // `isCut` when the unit's line was longer than what is shown.
    void ShowLine(std::string_view line, bool isCut);

    // Goes to standard error, and with Json to standard output, too. A success without a reason
    // shows in Json alone.
    void ShowResult(Status status, const std::string& reason);

private:
    void ShowBar(std::string_view label, int percent);
    void EndBar();

    Form form;
    bool barStands = false;
};
