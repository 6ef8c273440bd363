// The controller's side of the unit as a command-line tool: sends one command, shows what comes
// back line by line, and ends with a status that a script can use.

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>

#include <getopt.h>
#include <unistd.h>

#include "Exchange.h"
#include "Link.h"
#include "Output.h"

namespace {

constexpr double kAnswerLimit = 10;  // seconds; the unit is deaf for 5 while it restarts the CSP
constexpr double kJobLimit = 120;    // seconds; the unit itself gives a silent CSP up before that
constexpr double kWindow = 2;        // seconds in which `send` shows what comes
constexpr double kMaxTimeout = 1e6;
constexpr double kForever = 1e9;
constexpr int kMaxPort = 65535;
constexpr std::size_t kMaxBytes = 8192;  // more doesn't fit in one read of the unit
constexpr std::size_t kGroupSize = 4;
constexpr int kHex = 16;

struct Options {
    std::string host = "127.0.0.1";
    std::string port = "4917";
    double timeout = 0;  // seconds; 0 when it isn't given
    bool json = false;
    const Command* command = nullptr;
    std::string bytes;
};

Clock::duration Seconds(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

void PrintHelp()
{
    std::printf("diagctl [--host H] [--port P] [--json] [--timeout S] COMMAND...\n\n");
    for (const Command& command : Commands())
        std::printf("  %-18s %s\n", std::string(command.name).c_str(),
                    std::string(command.help).c_str());
    std::printf("  %-18s %s\n", "help", "this text");
    std::printf("\n"
                "  --host H     the unit's address, 127.0.0.1 if left out\n"
                "  --port P     its port, 4917 if left out\n"
                "  --timeout S  how many seconds of silence are too many: %.0f for an answer and\n"
                "               %.0f while the unit works, if left out; monitor waits forever\n"
                "               and ends as the last read-back or update that it saw\n"
                "  --json       an object a line, for other programs\n\n"
                "Exit status: 0 success, 1 the unit said that it failed, 2 wrong usage,\n"
                "3 no connection or a lost one, 4 no answer. The unit drops commands without a\n"
                "word while a read-back or an update runs.\n",
                kAnswerLimit, kJobLimit);
}

Status WrongUsage(const std::string& reason)
{
    std::fprintf(stderr, "diagctl: %s\nTry: diagctl help\n", reason.c_str());
    return Status::Usage;
}

// False unless the whole text is a number in the range.
template <typename Number>
bool ParseNumber(const char* text, Number most, Number& value)
{
    std::istringstream stream(text);
    stream >> std::noskipws >> value;
    return !stream.fail() && stream.peek() == EOF && value > 0 && value <= most;
}

// Pairs of hex digits; blanks between them are passed over. False for anything else.
bool ParseBytes(std::string digits, std::string& bytes)
{
    digits.erase(std::remove(digits.begin(), digits.end(), ' '), digits.end());
    if (digits.empty() || digits.size() % 2 != 0 || digits.size() / 2 > kMaxBytes ||
        digits.find_first_not_of("0123456789ABCDEFabcdef") != std::string::npos)
        return false;
    for (std::size_t at = 0; at < digits.size(); at += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, kHex));
    return true;
}

// Without an error and without a command it is the help that is asked for.
Status ParseCommand(const std::string& words, Options& options)
{
    const std::string first = words.substr(0, words.find(' '));
    if (first == "send") {
        if (!ParseBytes(words.substr(first.size()), options.bytes))
            return WrongUsage("send takes up to 8192 bytes, two hex digits each");
        if (options.bytes.size() % kGroupSize != 0)
            std::fprintf(stderr, "diagctl: the unit drops the bytes behind the last whole "
                                 "group of 4\n");
        options.command = FindCommand(first);
        return Status::Success;
    }
    options.command = FindCommand(words);
    if (words == "help")
        return Status::Success;
    if (options.command == nullptr)
        return WrongUsage(words.empty() ? "no command" : "no such command: " + words);
    options.bytes = GroupBytes(*options.command);
    return Status::Success;
}

Status ParseOptions(int argc, char** argv, Options& options)
{
    enum Letter { Host = 'H', Port = 'P', Timeout = 't', Json = 'j', Help = 'h' };
    const option known[] = {{"host", required_argument, nullptr, Host},
                            {"port", required_argument, nullptr, Port},
                            {"timeout", required_argument, nullptr, Timeout},
                            {"json", no_argument, nullptr, Json},
                            {"help", no_argument, nullptr, Help},
                            {nullptr, 0, nullptr, 0}};

    int letter = 0;
    while ((letter = getopt_long(argc, argv, "h", known, nullptr)) != -1) {
        switch (letter) {
        case Host: options.host = optarg; break;
        case Port:
            if (int port = 0; !ParseNumber(optarg, kMaxPort, port))
                return WrongUsage(std::string("no port: ") + optarg);
            options.port = optarg;
            break;
        case Timeout:
            if (!ParseNumber(optarg, kMaxTimeout, options.timeout))
                return WrongUsage(std::string("no time in seconds: ") + optarg);
            break;
        case Json: options.json = true; break;
        case Help: return Status::Success;
        default: return WrongUsage("wrong options");
        }
    }
    std::string words;
    for (int i = optind; i < argc; ++i)
        words += (words.empty() ? "" : " ") + std::string(argv[i]);
    return ParseCommand(words, options);
}

// How long the unit may say nothing that belongs to the command.
double SilenceLimit(const Options& options, const Exchange& exchange)
{
    if (options.timeout > 0)
        return options.timeout;
    switch (options.command->wait) {
    case Wait::Window: return kWindow;
    case Wait::Close: return kForever;
    default: return exchange.HasStarted() ? kJobLimit : kAnswerLimit;
    }
}

std::string ReasonFor(Status status, const Exchange& exchange)
{
    if (!exchange.Reason().empty() || status == Status::Success)
        return exchange.Reason();
    if (status == Status::Connection)
        return "the unit has closed the connection; it serves the controller that came last";
    return exchange.HasStarted() ? "the unit has fallen silent"
                                 : "no answer; the unit drops commands while a read-back or an "
                                   "update runs (monitor shows it)";
}

Status Converse(const Options& options, Link& link, Output& output)
{
    Exchange exchange(*options.command);
    auto deadline = Clock::now() + Seconds(SilenceLimit(options, exchange));
    Status status = Status::Success;
    std::string line;
    bool isCut = false;
    for (bool waiting = true; waiting;) {
        const Link::Event event = link.Next(deadline, line, isCut);
        waiting = event == Link::Event::Line;
        if (!waiting) {
            status = exchange.ResultAt(event == Link::Event::Closed);
            continue;
        }
        output.ShowLine(line, isCut);
        const bool isOwn = exchange.Take(line);
        if (isOwn)
            deadline = Clock::now() + Seconds(SilenceLimit(options, exchange));
        // A flood of foreign lines must not keep the command waiting.
        const bool isLate = !isOwn && Clock::now() >= deadline;
        status = isLate ? exchange.ResultAt(false) : exchange.Result();
        waiting = !isLate && !exchange.HasEnded();
    }
    output.ShowResult(status, ReasonFor(status, exchange));
    return status;
}

Status Run(const Options& options)
{
    const bool isTerminal = isatty(STDOUT_FILENO) != 0;
    Output output(options.json ? Output::Form::Json
                               : (isTerminal ? Output::Form::Bar : Output::Form::Plain));
    Link link;
    std::string error;
    const double limit = options.timeout > 0 ? options.timeout : kAnswerLimit;
    if (!link.Connect(options.host, options.port, Seconds(limit), error)) {
        output.ShowResult(Status::Connection, error);
        return Status::Connection;
    }
    if (!options.bytes.empty() && !link.Send(options.bytes)) {
        output.ShowResult(Status::Connection, "the command could not be sent");
        return Status::Connection;
    }
    if (options.command->wait == Wait::Taken)
        link.EndSending();
    return Converse(options, link, output);
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    const Status parsed = ParseOptions(argc, argv, options);
    if (parsed == Status::Success && options.command == nullptr)
        PrintHelp();
    else if (parsed == Status::Success)
        return static_cast<int>(Run(options));
    return static_cast<int>(parsed);
}
