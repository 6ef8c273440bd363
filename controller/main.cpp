// The controller's side of the unit as a command-line tool, and a technician's tool for image
// files. Ends with a status that a script can use.

#include <cstdio>
#include <sstream>
#include <string>

#include <getopt.h>

#include "Command.h"

namespace {

constexpr double kMaxTime = 1e6;  // seconds
constexpr int kMaxPort = 65535;

constexpr char kOptionHelp[] =
    "  --host H     the unit's address, 127.0.0.1 if left out\n"
    "  --port P     its port, 4917 if left out\n"
    "  --timeout S  how many seconds of silence are too many: 15 for an answer and 120 while\n"
    "               the unit works, if left out; monitor waits forever\n"
    "  --wait S     for so many seconds, tries again while the unit can't be reached or is busy\n"
    "  --json       an object a line, for other programs\n"
    "  --quiet      the answer and nothing else\n"
    "  --verbose    the bytes on the wire, too, to standard error\n"
    "  --svg FILE   check: the picture as a file\n"
    "  --force      convert: overwrites the target\n"
    "  --version    the version of this program\n"
    "  --help       this text, or a command's\n";

std::string UsageOf(const Command& command)
{
    std::string usage(command.name);
    if (!command.arguments.empty())
        usage += " " + std::string(command.arguments);
    return usage;
}

void PrintCommands()
{
    std::printf("Usage: diagctl [OPTION...] COMMAND [ARGUMENT...]\n\n");
    for (const Command& command : Commands())
        std::printf("  %-18s %s\n", UsageOf(command).c_str(), std::string(command.help).c_str());
}

// Of the command; of all without one.
void PrintHelp(const Command* command)
{
    if (command == nullptr)
        PrintCommands();
    else
        std::printf("Usage: diagctl [OPTION...] %s\n\n  %s\n", UsageOf(*command).c_str(),
                    std::string(command->help).c_str());
    std::printf("\n%s\nExit status:\n", kOptionHelp);
    for (const StatusMeaning& each : kStatusMeanings)
        std::printf("  %d  %s\n", static_cast<int>(each.status), each.text);
}

// False unless all of the text is a number in the range, without a sign.
template <typename Number>
bool ParseNumber(const std::string& text, Number most, Number& value)
{
    std::istringstream stream(text);
    stream >> std::noskipws >> value;
    const bool isNumber = !stream.fail() && stream.peek() == EOF && text[0] != '+';
    return isNumber && value > 0 && value <= most;
}

// What to do: run the command, or only print something.
enum class Wish { Run, Help, Version };

struct Parsed {
    Invocation invocation;
    Wish wish = Wish::Run;
    std::string error;
};

enum Letter {
    Host = 1,
    Port,
    Timeout,
    WaitTime,
    JsonForm,
    Quiet,
    Verbose,
    Svg,
    Force,
    Version,
    Help
};

constexpr option kOptions[] = {{"host", required_argument, nullptr, Host},
                               {"port", required_argument, nullptr, Port},
                               {"timeout", required_argument, nullptr, Timeout},
                               {"wait", required_argument, nullptr, WaitTime},
                               {"json", no_argument, nullptr, JsonForm},
                               {"quiet", no_argument, nullptr, Quiet},
                               {"verbose", no_argument, nullptr, Verbose},
                               {"svg", required_argument, nullptr, Svg},
                               {"force", no_argument, nullptr, Force},
                               {"version", no_argument, nullptr, Version},
                               {"help", no_argument, nullptr, Help},
                               {nullptr, 0, nullptr, 0}};

void SetSeconds(const std::string& text, double& seconds, std::string& error)
{
    if (!ParseNumber(text, kMaxTime, seconds))
        error = "no time in seconds: " + text;
}

void SetPort(const std::string& text, Invocation& invocation, std::string& error)
{
    int port = 0;
    if (!ParseNumber(text, kMaxPort, port))
        error = "no port: " + text;
    invocation.port = text;
}

void TakeOption(int letter, const char* argument, Parsed& parsed)
{
    Invocation& invocation = parsed.invocation;
    switch (letter) {
    case Host: invocation.host = argument; break;
    case Port: SetPort(argument, invocation, parsed.error); break;
    case Timeout: SetSeconds(argument, invocation.timeout, parsed.error); break;
    case WaitTime: SetSeconds(argument, invocation.wait, parsed.error); break;
    case JsonForm: invocation.json = true; break;
    case Quiet: invocation.quiet = true; break;
    case Verbose: invocation.verbose = true; break;
    case Svg: invocation.svg = argument; break;
    case Force: invocation.force = true; break;
    case Version: parsed.wish = Wish::Version; break;
    case Help:
    case 'h': parsed.wish = Wish::Help; break;
    default: parsed.error = "wrong options";
    }
}

// Takes the command's name, of two words where there is such a one, and then its arguments.
void TakeWords(std::vector<std::string> words, Parsed& parsed)
{
    if (!words.empty() && words[0] == "help") {
        parsed.wish = Wish::Help;
        words.erase(words.begin());
    }
    if (words.empty()) {
        if (parsed.wish == Wish::Run)
            parsed.error = "no command";
        return;
    }
    Invocation& invocation = parsed.invocation;
    std::size_t used = 2;
    if (words.size() >= used)
        invocation.command = FindCommand(words[0] + " " + words[1]);
    if (invocation.command == nullptr) {
        used = 1;
        invocation.command = FindCommand(words[0]);
    }
    if (invocation.command == nullptr)
        parsed.error = "no such command: " + words[0];
    invocation.arguments.assign(words.begin() + static_cast<std::ptrdiff_t>(used), words.end());
}

Parsed Parse(int argc, char** argv)
{
    Parsed parsed;
    int letter = 0;
    // An error doesn't end the loop: a --json after it decides how the error is shown.
    while ((letter = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1)
        TakeOption(letter, optarg, parsed);
    if (parsed.error.empty() && parsed.wish != Wish::Version)
        TakeWords({argv + optind, argv + argc}, parsed);
    return parsed;
}

Status Run(const Parsed& parsed)
{
    const Command* const command = parsed.invocation.command;
    if (!parsed.error.empty())
        return Finish(parsed.invocation, WrongUsage(parsed.error));
    if (parsed.wish == Wish::Run)
        return Finish(parsed.invocation, command->handler(parsed.invocation));
    if (parsed.wish == Wish::Version)
        std::printf("diagctl %s\n", DIAGCTL_VERSION);
    else
        PrintHelp(command);
    return Finish({}, {});
}

}  // namespace

int main(int argc, char** argv)
{
    return static_cast<int>(Run(Parse(argc, argv)));
}
