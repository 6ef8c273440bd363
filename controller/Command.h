#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "HexCheck.h"
#include "Status.h"

// A command line, taken apart. Each command sees the options that are its own; the others have the
// values below.
struct Invocation {
    std::string command;  // its name
    Outcome (*run)(const Invocation&) = nullptr;
    std::vector<std::string> arguments;  // of the command

    std::string host = "127.0.0.1";
    int port = 4917;
    double timeoutSeconds = 0;  // 0 when it isn't given
    double waitSeconds = 0;     // in which the unit must come to serve

    bool json = false;
    bool quiet = false;
    bool verbose = false;

    std::string expected;  // version; empty for any
    bool yes = false;      // without asking
    bool dryRun = false;

    bool open = false;  // the page

    bool force = false;
    bool all = false;                         // findings
    std::string svg;                          // the file for the picture; empty for none
    Severity outsideFlash = Severity::Error;  // of data there
};

// One sentence to standard error, after the program's name. Bytes outside printable ASCII are
// escaped.
void Complain(std::string_view sentence);
// To standard output, which they reach at its next flush.
void PrintLines(const std::string& lines);

Outcome WrongUsage(const std::string& reason);

// The end of every command: shows its outcome, with --json in an object.
Status Finish(const Invocation& invocation, const Outcome& outcome);

// Commands on images.
Outcome CheckFiles(const Invocation& invocation);
Outcome ConvertImage(const Invocation& invocation);
Outcome CompareImages(const Invocation& invocation);
Outcome PrepareMedium(const Invocation& invocation);

// Where the page for a browser is.
Outcome ShowPage(const Invocation& invocation);
