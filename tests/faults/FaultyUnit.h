#pragma once

#include "Disk.h"
#include "Scene.h"

// What a fault can hit: a part of its name in the journal, after the kind of call unless any kind
// counts ("csp_param.hex", "umount /mnt").
using Causes = Words;
constexpr char kMidiLink[] = "i2c_server_sock";
constexpr char kRcLink[] = "rcseq_socket";
constexpr char kController[] = "tcp";
constexpr char kLogs[] = ".log";

// What a command or a program has shown and logged.
struct Reply {
    std::string shown;
    std::string logged;
};

// How a command can end: the text shown, what the fault must have hit (nothing for a success), and
// the text logged, by default the one shown.
struct Result {
    std::string shown;
    Causes causes;
    std::string logged = shown;
};

// The outcome of a scenario's promises: all were kept; it failed and reported that; the fault has
// cost one, unreported; or one was broken for no reason.
enum class Outcome { Kept, Reported, Lost, Violation };

struct Scenario;

// A unit in which one thing fails. Its one rule: a promise is kept unless the fault has hit what it
// depends on.
class FaultyUnit : public Scene {
public:
    explicit FaultyUnit(const std::string& itsFault) : Scene(itsFault), fault(itsFault)
    {
        Set("SIMUNIT_CALLS=" + Path("sim/calls"));
    }

    const std::string& Fault() const { return fault; }
    // The calls of the program, from the first one on that begins so.
    std::vector<CallLine> Calls(const std::string& first = "") const;
    // True once the fault has occurred.
    bool HasFault() const { return !SeenFault().empty(); }
    bool IsHit(const Causes& causes) const;

    // Throws when a promise is broken and the fault has hit none of the causes.
    void Expect(bool isKept, const std::string& promise, const Causes& causes);
    // The same for lines of the server's log, in this order.
    void ExpectLog(const Words& lines);
    // The same for a file that a read-back of the last piano has written.
    void ExpectReadBack(const std::string& name);
    // The same for the results of a command, one of which is shown and logged. True for a success.
    bool Judge(const Reply& reply, const std::vector<Result>& results);

    void NoteReportedFailure() { hasFailed = true; }
    Outcome GetOutcome() const;
    int Lost() const { return lost; }

    // Starts a server with a piano, runs the scenario after the first read-back, and ends the
    // server by a read-back from a new, good piano.
    void RunScenario(const Scenario& scenario);
    void AwaitFirstReadBack();
    // Waits for the end of a program and checks its exit status. With --strict it may fail, with a
    // reason: then the result is false.
    bool CheckEnd(Process& program, bool isStrict = false);

    bool IsServing() { return server->IsRunning(); }
    // Sends groups and lets time pass.
    Reply Try(const std::string& groups, std::chrono::nanoseconds time = std::chrono::seconds(20));

private:
    // Such as "fault write #3 EIO on tcp"; empty until it occurs.
    std::string SeenFault() const;
    Words ReadBackOptions(int size) const;
    void EndServer();

    std::string fault;
    int lost = 0;
    bool hasFailed = false;
};

// Which faults a scenario is tried with: every call fails, and the link after each of so many last
// frames in each direction; the last calls fail, and the medium is pulled out before each; or the
// power is cut after each call that changes a file.
enum class Points { Calls, LastCalls, LastCallsAndPulls, Cuts };

// One flow of the program, from the start of its processes to their end. It throws when a promise
// is broken for no reason.
struct Scenario {
    std::string name;
    int frames;  // see above
    // Bytes for the server's first read-back. With none it fails, and the server takes commands.
    // Below 0 `run` starts the program itself.
    int flash;
    std::function<void(FaultyUnit&)> run;
    Points points = Points::Calls;
};
constexpr int kAllFrames = 1000000;
constexpr int kFailingRead = 0;
constexpr int kNoServer = -1;

// Those of the default behaviour and of the strict update; the strict runs that replace a file.
std::vector<Scenario> DefaultScenarios();
std::vector<Scenario> StrictScenarios();
