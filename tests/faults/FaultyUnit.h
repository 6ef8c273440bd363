#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Unit.h"

bool Contains(const std::string& text, const std::string& piece);
// Throws std::runtime_error with the text when the condition is false.
void Check(bool condition, const std::string& otherwise);

// What a fault can hit: a part of its name in the journal, after the kind of call unless any kind
// counts ("csp_param.hex", "umount /mnt").
using Causes = std::vector<std::string>;
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

class FaultyUnit;

// One flow of the program, from the start of its processes to their end. It throws when a promise
// is broken for no reason.
struct Scenario {
    std::string name;
    // The frames in each direction after which the link is cut, or the piano ends: all, or the last
    // few.
    int frames;
    // Bytes for the server's first read-back. With none it fails, and the server takes commands.
    // Below 0 `run` starts the program itself.
    int flash;
    void (*run)(FaultyUnit&);
};
constexpr int kAllFrames = 1000000;
constexpr int kFailingRead = 0;
constexpr int kNoServer = -1;

extern const std::vector<Scenario> kScenarios;

// A unit in which one thing fails: a call of the program, "write:3:EIO", or the piano's link by an
// option of simpiano, "--die-after 12". Nothing fails when the fault is empty.
//
// Its one rule: a promise is kept unless the fault has hit what it depends on.
class FaultyUnit : public Unit {
public:
    explicit FaultyUnit(const std::string& itsFault);

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

    Outcome GetOutcome() const;
    int Lost() const { return lost; }

    // Starts a server with a piano, runs the scenario after the first read-back, and ends the
    // server by a read-back from a new, good piano.
    void Run(const Scenario& scenario);

    // Starts a piano with the options, and a server in front of it.
    void StartServing(const Words& options, const Words& words);
    void AwaitFirstReadBack();

    Process& StartFaultyPiano(Words options);
    // Waits for the end of a program and checks its exit status, errors and descriptors. With
    // --strict it may fail, with a reason: then the result is false.
    bool CheckEnd(Process& program, bool isStrict = false);

    bool IsServing() { return server->IsRunning(); }
    // Ends the server, and returns what it has printed on standard error.
    std::string KillServer();
    void StopPiano() { piano->Kill(SIGTERM); }
    // Sends groups and lets time pass. Returns what is shown and logged meanwhile.
    Reply Ask(const std::string& groups, std::chrono::nanoseconds time = std::chrono::seconds(20));

private:
    // Such as "fault write #3 EIO on tcp"; empty until it occurs.
    std::string SeenFault() const;
    static std::string CheckErrors(const Process& program);
    Words ReadBackOptions(int size) const;
    void EndServer();

    std::string fault;
    int lost = 0;
    bool hasFailed = false;
    Process* piano = nullptr;
    Process* server = nullptr;
    std::unique_ptr<Controller> controller;
};
