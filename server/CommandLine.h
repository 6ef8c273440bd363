#pragma once

#include <cstdint>
#include <string>

#include "Sockets.h"
#include "TMidiCom.h"
#include "UnitPaths.h"

// The line that names the program. A file mode begins with it.
inline constexpr char kProgramVersion[] = "Diag Server Ver.0.26\n";

// --help, --version and --strict count only as the first word, --verify and --listen only after
// --strict; all are written in full. Everything else goes through getopt.
inline constexpr char kHelpWord[] = "--help";
inline constexpr char kVersionWord[] = "--version";
inline constexpr char kStrictWord[] = "--strict";
inline constexpr char kVerifyWord[] = "--verify";
inline constexpr char kListenWord[] = "--listen";

// What the command line asks for, by default the server.
struct Options {
    static constexpr int kDefaultPort = 4917;

    bool HasFile() const { return filename[0] != '\0'; }

    int port = kDefaultPort;             // TCP port of the controller
    int connecttype = TMidiCom::kPiano;  // kPiano or kOther; the last option decides
    bool renameFile = false;             // to its version, after a finished update
    bool versionOnly = false;            // counts with a file name only
    bool verify = false;                 // compare the flash after an update; with --strict only
    bool usageIsPrinted = false;         // it was requested
    char filename[kPathSize] = {};       // empty: run the server

    // The IPv4 address to listen at, the first byte the highest, and its text; with --strict only.
    std::uint32_t address = kAnyAddress;
    std::string addressText;  // empty: all addresses

    // The latest mistake, which only --strict looks at, and its text unless it was printed already.
    enum class Mistake { None, Printed, Unprinted };
    Mistake mistake = Mistake::None;
    std::string mistakeText;

    void SetMistake(const std::string& text)
    {
        mistake = Mistake::Unprinted;
        mistakeText = text;
    }
};

// Prints the usage line on standard error.
void usage();

// Prints all options on standard output.
void PrintHelp();

// A sentence on standard error, after the program's name.
void PrintError(const std::string& text);

// Applies the options. A mistake is printed by getopt or ignored; the other options still apply.
// False when nothing is to run: the usage was requested, or the file name doesn't fit.
bool ParseOptions(int argc, char** argv, Options& options);

// What remains to be done for a command line with --strict.
enum class Request { Run, Nothing, RefuseMistake };

// The same for the words after --strict, where a mistake is printed with the usage line. `argv`
// begins with the program's name.
Request ParseStrictOptions(int argc, char** argv, Options& options);
