#include "FaultyUnit.h"

#include <csignal>
#include <sstream>
#include <stdexcept>

#include "HexText.h"

namespace {

// How long a scenario may take, in the unit's time.
constexpr std::chrono::seconds kEndLimit{6000};

}  // namespace

bool Contains(const std::string& text, const std::string& piece)
{
    return text.find(piece) != std::string::npos;
}

void Check(bool condition, const std::string& otherwise)
{
    if (!condition)
        throw std::runtime_error(otherwise);
}

FaultyUnit::FaultyUnit(const std::string& itsFault) : fault(itsFault)
{
    if (Contains(fault, ":"))
        Set("SIMUNIT_FAULT=" + fault);
}

std::string FaultyUnit::SeenFault() const
{
    if (Contains(fault, "--")) {
        const std::string passed = MidiLog();
        const bool hasCome = Contains(passed, " dropped\n") || Contains(passed, " died\n");
        return hasCome ? std::string("fault link on ") + kMidiLink : "";
    }
    const std::string journal = "\n" + Journal();
    const std::size_t at = journal.find("\nfault ");
    return at == std::string::npos ? ""
                                   : journal.substr(at + 1, journal.find('\n', at + 1) - at - 1);
}

bool FaultyUnit::IsHit(const Causes& causes) const
{
    const std::string line = SeenFault();
    for (const std::string& cause : causes) {
        const std::size_t blank = cause.find(' ');
        const std::string subject = cause.substr(blank + 1);
        if (blank != std::string::npos && !Contains(line, "fault " + cause.substr(0, blank + 1)))
            continue;
        // A socket that isn't connected yet may be for either peer.
        const bool isLink = subject == kMidiLink || subject == kRcLink;
        if (Contains(line, subject) || (isLink && Contains(line, " on socket")))
            return true;
    }
    return false;
}

void FaultyUnit::Expect(bool isKept, const std::string& promise, const Causes& causes)
{
    Check(isKept || IsHit(causes), "broken for no reason: " + promise);
    lost += isKept ? 0 : 1;
}

void FaultyUnit::ExpectLog(const Words& lines)
{
    const std::string log = Log();
    std::size_t at = 0;
    for (const std::string& line : lines) {
        at = log.find(line + "\n", at == std::string::npos ? 0 : at);
        Expect(at != std::string::npos, "the log has: " + line, {kLogs});
    }
}

void FaultyUnit::ExpectReadBack(const std::string& name)
{
    Expect(Read(name) == HexText(Read("sim/flash"), 8, "\r\n"),
           "a saved read-back equals the flash", {"open csp_param.hex", "fwrite csp_param.hex"});
}

bool FaultyUnit::Judge(const Reply& reply, const std::vector<Result>& results)
{
    for (const Result& result : results) {
        const bool isShown = Contains(reply.shown, result.shown);
        const bool isLogged = Contains(reply.logged, result.logged);
        if ((!isShown && !isLogged) || !(result.causes.empty() || IsHit(result.causes)))
            continue;
        Expect(isShown, "it shows: " + result.shown, {kController});
        Expect(isLogged, "it logs: " + result.logged, {kLogs});
        hasFailed = hasFailed || !result.causes.empty();
        return result.causes.empty();
    }
    Expect(false, "a command has a result, with a reason", {kController});
    return false;
}

Outcome FaultyUnit::GetOutcome() const
{
    if (lost > 0)
        return Outcome::Lost;
    return hasFailed ? Outcome::Reported : Outcome::Kept;
}

std::string FaultyUnit::CheckErrors(const Process& program)
{
    std::string errors = program.Error();
    Check(!Contains(errors, "Sanitizer") && !Contains(errors, "runtime error"),
          "a sanitizer reports " + errors);
    return errors;
}

bool FaultyUnit::CheckEnd(Process& program, bool isStrict)
{
    const int status = program.Wait(kEndLimit);
    const std::string errors = CheckErrors(program);
    Check(status != -1, "it hangs");
    const bool isReported = isStrict && status == 1 && !errors.empty();
    Check(status == 0 || isReported, "exit status " + std::to_string(status));
    Check(Contains("\n" + Journal(), "\nexit descriptors=0\n"), "a descriptor is left");
    hasFailed = hasFailed || isReported;
    return status == 0;
}

Process& FaultyUnit::StartFaultyPiano(Words options)
{
    const std::size_t blank = fault.find(' ');
    if (blank != std::string::npos)
        options.insert(options.end(), {fault.substr(0, blank), fault.substr(blank + 1)});
    return StartPiano(options);
}

Unit::Words FaultyUnit::ReadBackOptions(int size) const
{
    std::ostringstream stop;
    stop << std::hex << 0x90040000U + static_cast<unsigned>(size);
    const std::string flash =
        Write("sim/flash", Firmware(static_cast<std::size_t>(size))) + "@90040000";
    return {"--join", "--read-cut", "8", "--load", flash, "--read-stop", stop.str()};
}

void FaultyUnit::Run(const Scenario& scenario)
{
    if (scenario.flash == kNoServer)
        return scenario.run(*this);
    // The bad record is the last one, so that nothing follows it.
    const Words failing = {"--join",      "--bad-checksum-at", "90040000",
                           "--read-stop", "9004000C",          "--allow-gaps"};
    StartServing(scenario.flash == kFailingRead ? failing : ReadBackOptions(scenario.flash),
                 {"-P", "0"});
    AwaitFirstReadBack();
    hasFailed = Contains(Log(), "MIDI Patcher is not active.") && IsHit({kMidiLink});
    if (!hasFailed)
        scenario.run(*this);
    StopPiano();
    if (IsServing())
        EndServer();
    CheckEnd(*server);
}

void FaultyUnit::StartServing(const Words& options, const Words& words)
{
    piano = &StartFaultyPiano(options);
    server = &Start("diag_server", words);
}

void FaultyUnit::AwaitFirstReadBack()
{
    // The fault may have hit the log. A successful read-back ends the server.
    const auto isOver = [this] {
        const std::string log = Log();
        return !IsServing() ||
               ((Contains(log, "CSP Read Failed") || Contains(log, "Rebooting CSP")) &&
                !Contains(server->Output(), "CSP Update Finished"));
    };
    Check(WaitUntil(isOver, kEndLimit), "the first read-back has no end");
}

std::string FaultyUnit::KillServer()
{
    server->Kill(SIGTERM);
    return CheckErrors(*server);
}

Reply FaultyUnit::Ask(const std::string& groups, std::chrono::nanoseconds time)
{
    if (!IsServing())
        return {};
    if (!controller || controller->IsClosed())
        controller = std::make_unique<Controller>(Port());
    const std::size_t shownBefore = controller->Received().size();
    const std::size_t loggedBefore = Log().size();
    controller->Send(Bytes(groups));
    const auto end = UnitTime() + time;
    WaitUntil([&] { return UnitTime() >= end || !IsServing(); }, 2 * time);
    return {controller->Received().substr(shownBefore), Log().substr(loggedBefore)};
}

void FaultyUnit::EndServer()
{
    const std::size_t before = MidiLog().size();
    StartPiano(ReadBackOptions(0x30));
    const auto isConnected = [&] { return Contains(MidiLog().substr(before), " connected\n"); };
    Check(WaitUntil(isConnected, kEndLimit), "the link to the piano isn't made again");
    // The fault may cost one connection, one command or one read-back. The server drops a command
    // while a read-back runs.
    for (const auto limit = UnitTime() + kEndLimit; IsServing() && UnitTime() < limit;) {
        controller.reset();
        Ask("DF DF 00 C0", std::chrono::seconds(80));
    }
    Check(!IsServing(), "no command ends it: it drops them, or hangs");
    ExpectReadBack(kParameterFile);
}
