#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Status.h"

struct Command;

// A command line, taken apart.
struct Invocation {
    const Command* command = nullptr;
    std::vector<std::string> arguments;  // of the command
    std::string host = "127.0.0.1";
    std::string port = "4917";
    double timeout = 0;  // seconds; 0 when it isn't given
    double wait = 0;     // seconds in which the unit must come to serve
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    bool force = false;
    std::string svg;  // the file for the picture; empty for none
};

struct Command {
    std::string_view name;  // of one or two words, with one blank between them
    std::string_view arguments;
    std::string_view help;
    Outcome (*handler)(const Invocation&);
};

// The commands, in the order of the help text.
const std::vector<Command>& Commands();

// Null when there is no such command.
const Command* FindCommand(std::string_view name);

// One sentence to standard error, after the program's name. Bytes outside printable ASCII are
// escaped.
void Complain(std::string_view sentence);
Outcome WrongUsage(const std::string& reason);

// The end of every command: shows its outcome, with --json in an object.
Status Finish(const Invocation& invocation, const Outcome& outcome);

// The bytes with everything escaped that isn't printable ASCII.
std::string Readable(std::string_view bytes);

// Commands on images.
Outcome CheckFiles(const Invocation& invocation);
Outcome ConvertImage(const Invocation& invocation);
Outcome CompareImages(const Invocation& invocation);
