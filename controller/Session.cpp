#include "Session.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <unistd.h>

#include "Exchange.h"
#include "Hexadecimal.h"
#include "Link.h"
#include "Output.h"
#include "Printable.h"
#include "Text.h"

namespace {

// Seconds. The unit doesn't read for 5 while it restarts the CSP. While it waits for a silent CSP
// it counts idle periods of 10, so a command that is sent again more often would make it wait
// forever.
constexpr double kAnswerLimit = 15;
constexpr double kJobLimit = 120;  // seconds; the unit itself gives up a silent CSP before that
constexpr double kWindow = 2;      // seconds in which `send` shows what arrives
constexpr double kForever = 1e9;
constexpr double kReasonWait = 0.5;      // seconds in which the reason for a failure must follow
constexpr double kRetryWait = 0.5;       // seconds between two attempts to connect
constexpr std::size_t kMaxBytes = 8192;  // more doesn't fit in one read of the unit
constexpr std::size_t kGroupSize = 4;
constexpr std::size_t kTracedBytes = 16;  // in a line
constexpr int kHex = 16;

Clock::duration Seconds(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

void PrintPiece(char direction, std::string_view bytes)
{
    std::string hex;
    std::string text;
    for (const char byte : bytes) {
        hex += TwoDigits(static_cast<unsigned char>(byte)) + " ";
        text += IsPrintable(byte) ? byte : '.';
    }
    hex.resize(3 * kTracedBytes, ' ');
    std::fprintf(stderr, "%c %s %s\n", direction, hex.c_str(), text.c_str());
}

void PrintBytes(char direction, std::string_view bytes)
{
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kTracedBytes)))
        PrintPiece(direction, bytes.substr(0, kTracedBytes));
}

Link::Watcher WatcherOf(const Invocation& invocation)
{
    return invocation.verbose ? PrintBytes : [](char, std::string_view) {};
}

// Each line is the answer to `send` and `monitor`, so quiet output has all of them.
Output::Form OutputFormOf(const Invocation& invocation, Wait wait, Shown shown)
{
    if (invocation.json)
        return Output::Form::Json;
    if (shown == Shown::NothingButJson)
        return Output::Form::Nothing;
    const bool isVersion = invocation.command == "version";
    if (isVersion || (invocation.quiet && wait == Wait::Replies))
        return Output::Form::Answer;
    const bool hasBar = !invocation.quiet && isatty(STDOUT_FILENO) != 0;
    return hasBar ? Output::Form::Bar : Output::Form::Plain;
}

std::string_view WorkOf(std::string_view command)
{
    if (command == "read")
        return "read-back";
    return command.substr(0, 6) == "update" ? "update" : "copy";
}

// A command on its way, with as many attempts as its time allows.
class Session {
public:
    Session(const Invocation& of, const Query& asked, std::string groups, Shown shown = Shown::All)
        : invocation(of),
          query(asked),
          bytes(std::move(groups)),
          serveBy(Clock::now() + Seconds(of.waitSeconds)),
          output(OutputFormOf(of, query.wait, shown)),
          link(WatcherOf(of)),
          exchange(query)
    {}

    Outcome Run();

private:
    Status Attempt();
    Status Converse();
    bool Send();
    std::optional<Status> OnEvent(Link::Arrival event);
    std::optional<Status> OnLine();
    std::optional<Status> OnSilence();
    void OnOtherWork();
    [[noreturn]] void EndBySignal();

    bool MayWait() const;
    double SilenceLimit() const;
    void AllowTime() { deadline = Clock::now() + Seconds(SilenceLimit()); }
    std::string ReasonFor(Status status) const;

    const Invocation& invocation;
    const Query& query;
    const std::string bytes;          // to send
    const Clock::time_point serveBy;  // until then the unit may refuse, drop or be busy

    Output output;
    Link link;
    Exchange exchange;           // of the latest attempt
    Clock::time_point deadline;  // the end of a silence
    std::string error;           // of the link
    bool isConnected = false;    // in the latest attempt
    bool busyIsShown = false;
    std::string line;    // the latest one of the unit
    bool isCut = false;  // it was longer
};

Outcome Session::Run()
{
    Status status = Attempt();
    while (status == Status::Connection && MayWait()) {
        output.EndBar();
        link.Close();
        usleep(static_cast<useconds_t>(kRetryWait * 1e6));
        status = Attempt();
    }
    output.EndBar();
    output.ShowAnswer(exchange.Answer());
    Outcome outcome = {status, ReasonFor(status), exchange.Answer()};
    outcome.note = exchange.Note();
    return outcome;
}

Status Session::Attempt()
{
    exchange = Exchange(query);
    const double limit = invocation.timeoutSeconds > 0 ? invocation.timeoutSeconds : kAnswerLimit;
    isConnected =
        link.Connect(invocation.host, std::to_string(invocation.port), Seconds(limit), error);
    if (!isConnected)
        return Status::Connection;
    const Status status = Converse();
    // Nobody starts the server again, so another attempt would fail.
    return status == Status::Connection && exchange.ServerEnds() ? Status::ServerEnded : status;
}

Status Session::Converse()
{
    if (!Send()) {
        error = "the command could not be sent";
        return Status::Connection;
    }
    error.clear();
    std::optional<Status> status;
    while (!status)
        status = OnEvent(link.Next(deadline, line, isCut));
    return *status;
}

bool Session::Send()
{
    AllowTime();
    return bytes.empty() || link.Send(bytes);
}

std::optional<Status> Session::OnEvent(Link::Arrival event)
{
    switch (event) {
    case Link::Arrival::Line: return OnLine();
    case Link::Arrival::Silence: return OnSilence();
    case Link::Arrival::Interrupted: EndBySignal();
    case Link::Arrival::Lost:
        if (!link.LostBy().empty())
            error = "the connection was lost: " + link.LostBy();
        [[fallthrough]];
    default: return exchange.ResultAt(true);
    }
}

std::optional<Status> Session::OnLine()
{
    const bool isOwn = exchange.Take(line);
    if (!exchange.IsMark(line))
        output.ShowLine(line, isCut, exchange.CompletedPhase(line));
    if (exchange.HasEnded())
        return exchange.Result();
    if (exchange.IsExplaining()) {
        deadline = Clock::now() + Seconds(kReasonWait);
        return std::nullopt;
    }
    if (isOwn)
        AllowTime();
    if (exchange.OtherWork())
        OnOtherWork();
    const bool isBusy = exchange.OtherWork() && query.wait == Wait::Replies;
    if (isBusy && !MayWait())
        return Status::NoAnswer;
    // A flood of foreign lines must not keep the command waiting, nor must work that has ended.
    const bool isDue = Clock::now() >= deadline || (isBusy && Exchange::EndsWork(line));
    return isDue && !isOwn ? OnSilence() : std::nullopt;
}

// A unit that hasn't answered by now has dropped the command: it is never deaf for so long.
std::optional<Status> Session::OnSilence()
{
    if (query.wait != Wait::Replies || exchange.IsExplaining() || !MayWait())
        return exchange.ResultAt(false);
    return Send() ? std::nullopt : std::optional(Status::Connection);
}

// Shown once: to a user who waits, and to one whose bytes the unit drops.
void Session::OnOtherWork()
{
    const bool isNews = MayWait() || query.wait == Wait::Window;
    if (isNews && !std::exchange(busyIsShown, true))
        output.ShowBusy(*exchange.OtherWork());
}

void Session::EndBySignal()
{
    output.EndBar();
    if (exchange.HasStarted() && query.wait == Wait::Replies)
        Complain("the unit continues with the " + std::string(WorkOf(query.command)));
    std::signal(SIGINT, SIG_DFL);
    link.Close();  // lets the signal through, which ends the program
    std::abort();
}

// True while a command that the unit hasn't taken may be tried again.
bool Session::MayWait() const
{
    const bool isDropped =
        query.wait == Wait::Replies && !exchange.HasStarted() && !exchange.IsExplaining();
    return (!isConnected || isDropped) && Clock::now() < serveBy;
}

// How long the unit may send nothing that belongs to the command.
double Session::SilenceLimit() const
{
    if (invocation.timeoutSeconds > 0)
        return invocation.timeoutSeconds;
    switch (query.wait) {
    case Wait::Window: return kWindow;
    case Wait::Close: return kForever;
    default: return exchange.HasStarted() ? kJobLimit : kAnswerLimit;
    }
}

std::string Session::ReasonFor(Status status) const
{
    if (status == Status::ServerEnded)
        return "the piano is well: the read-back has succeeded, and the server has ended, as it "
               "does then; to update it, run \"diag_server -f FILE\" on the unit, or start the "
               "server with the piano stopped";
    if (status == Status::Connection)
        return !error.empty() ? error
                              : "the unit has closed the connection: the server has ended, or "
                                "serves a controller that came later";
    if (status == Status::Success || !exchange.Reason().empty())
        return exchange.Reason();
    if (exchange.OtherWork())
        return "the unit is busy (" + TextOf(*exchange.OtherWork()) + ")";
    return exchange.HasStarted() ? "the unit has fallen silent"
                                 : "no answer; the unit drops commands while a read-back or an "
                                   "update runs (monitor shows it)";
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

}  // namespace

Outcome Ask(const Invocation& invocation)
{
    std::string name = invocation.command;
    for (const std::string& argument : invocation.arguments)
        name += " " + argument;
    return Ask(invocation, name, Shown::All);
}

Outcome Ask(const Invocation& invocation, std::string_view query, Shown shown)
{
    const Query& asked = QueryOf(query);
    return Session(invocation, asked, GroupBytes(asked), shown).Run();
}

Outcome SendBytes(const Invocation& invocation)
{
    std::string digits;
    for (const std::string& argument : invocation.arguments)
        digits += argument;
    std::string bytes;
    if (!ParseBytes(digits, bytes))
        return WrongUsage("send takes up to 8192 bytes, two hex digits each");
    if (bytes.size() % kGroupSize != 0)
        Complain("the unit drops the bytes after the last whole group of 4");
    return Session(invocation, QueryOf(invocation.command), bytes).Run();
}
