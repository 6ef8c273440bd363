#include "FaultyUnit.h"

#include "HexText.h"

namespace {

// How long a scenario may take, in the unit's time.
constexpr std::chrono::seconds kEndLimit{6000};

}  // namespace

std::vector<CallLine> FaultyUnit::Calls(const std::string& first) const
{
    const std::string all = Read("sim/calls");
    std::istringstream words(all.substr(std::min(all.find(first), all.size())));
    std::vector<CallLine> calls;
    for (CallLine call; words >> call.kind >> call.number >> call.subject;)
        calls.push_back(call);
    return calls;
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
        const std::size_t kindSize = cause.find(' ') + 1;  // 0 without a kind
        const std::string subject = cause.substr(kindSize);
        // A socket that isn't connected yet may be for either peer.
        const bool isLink = subject == kMidiLink || subject == kRcLink;
        if (Contains(line, "fault " + cause.substr(0, kindSize)) &&
            (Contains(line, subject) || (isLink && Contains(line, " on socket"))))
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
    return lost > 0 ? Outcome::Lost : hasFailed ? Outcome::Reported : Outcome::Kept;
}

bool FaultyUnit::CheckEnd(Process& program, bool isStrict)
{
    const int status = AwaitEnd(program, kEndLimit);
    const bool isReported = isStrict && status == 1 && !program.Error().empty();
    Check(status == 0 || isReported, "exit status " + std::to_string(status));
    hasFailed = hasFailed || isReported;
    return status == 0;
}

Words FaultyUnit::ReadBackOptions(int size) const
{
    std::ostringstream stop;
    stop << std::hex << 0x90040000U + static_cast<unsigned>(size);
    const std::string flash =
        Write("sim/flash", Firmware(static_cast<std::size_t>(size))) + "@90040000";
    return {"--join", "--read-cut", "8", "--load", flash, "--read-stop", stop.str()};
}

void FaultyUnit::RunScenario(const Scenario& scenario)
{
    if (scenario.flash == kNoServer)
        return scenario.run(*this);
    // The bad record is the last one, so that nothing follows it.
    const std::string failing =
        "--join --bad-checksum-at 90040000 --read-stop 9004000C --allow-gaps";
    StartWithPiano(kAnyPort, scenario.flash == kFailingRead ? Split(failing)
                                                            : ReadBackOptions(scenario.flash));
    AwaitFirstReadBack();
    hasFailed = Contains(Log(), "MIDI Patcher is not active.") && IsHit({kMidiLink});
    if (!hasFailed)
        scenario.run(*this);
    piano->Kill(SIGTERM);
    if (IsServing())
        EndServer();
    CheckEnd(*server);
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

Reply FaultyUnit::Try(const std::string& groups, std::chrono::nanoseconds time)
{
    if (!IsServing())
        return {};
    if (!controller || controller->IsClosed())
        Connect();
    const std::size_t before = Log().size();
    controller->Send(Bytes(groups));
    Pass(time);
    return {TakeReplies(), Log().substr(before)};
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
        Try(kReadParameters, std::chrono::seconds(80));
    }
    Check(!IsServing(), "no command ends it: it drops them, or hangs");
    ExpectReadBack(kParameterFile);
}
