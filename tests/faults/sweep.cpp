// Makes every call of every scenario fail, one at a time, with every error that fits it, and in the
// read-backs and updates cuts the piano's link or ends the piano after every frame. Prints a table
// of the outcomes, which docs/testing.md explains.
// The strict runs that replace a file have their last calls tried, a medium that is pulled out
// before each, and a power cut after each call that changes a file.
//
//   sweep [EVERY [SCENARIO [FAULT]]]
//
// tries every N-th fault, by default every one, of all rows of the table or of one. Or it tries a
// single fault, such as "write:3:EIO" or "--die-after 12", and keeps its unit.

#include <exception>
#include <iostream>
#include <numeric>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "FaultyUnit.h"

namespace {

// Kinds of calls, and what they fail with.
const std::pair<Words, Words> kErrors[] = {
    {{"socket read"}, {"ECONNRESET", "EIO", "EINTR", "short"}},
    {{"socket write"}, {"EPIPE", "ECONNRESET", "EINTR", "short"}},
    {{"read", "fread"}, {"EIO", "EINTR", "short"}},
    {{"write", "fwrite"}, {"ENOSPC", "EIO", "EINTR", "short"}},
    {{"open"}, {"EACCES", "EMFILE", "EIO"}},
    {{"connect"}, {"ECONNREFUSED", "EACCES", "EINTR"}},
    {{"accept"}, {"EMFILE", "EINTR", "ECONNABORTED"}},
    {{"select"}, {"EINTR", "ENOMEM"}},
    {{"stat", "unlink", "mount", "utime"}, {"EACCES", "EIO"}},
    {{"statfs", "ftruncate", "syncfs"}, {"EIO"}},
    {{"rename"}, {"EACCES", "ENOSPC", "EIO"}},
    {{"umount"}, {"EINVAL", "EBUSY"}},
    {{"ioctl"}, {"EIO", "EINTR"}},
    {{"socket"}, {"EMFILE", "EACCES"}},
    {{"bind"}, {"EACCES", "EADDRINUSE"}},
    {{"listen"}, {"EADDRINUSE"}},
    {{"fsync"}, {"EIO", "ENOSPC"}},
};

Words ErrorsOf(const std::string& kind, const std::string& subject)
{
    const bool isSocket =
        Contains(subject, kMidiLink) || Contains(subject, kRcLink) || subject == kController;
    const bool movesBytes = kind == "read" || kind == "write";
    const std::string meant = isSocket && movesBytes ? "socket " + kind : kind;
    for (const auto& [kinds, errors] : kErrors)
        if (std::count(kinds.begin(), kinds.end(), meant) > 0)
            return errors;
    Check(kind == "sync", "no errors are listed for " + kind);
    return {};
}

// All faults of a scenario, and its calls and frames without a fault.
struct Faults {
    Words all;
    std::size_t calls = 0;
    int frames = 0;
};

// The frames that the piano has recorded at its end.
void AddFrames(Faults& faults, const std::string& passed, int most)
{
    constexpr char kFrames[] = " frames ";
    Check(Contains(passed, kFrames), "the piano hasn't recorded its frames");
    std::istringstream words(passed.substr(passed.find(kFrames) + sizeof(kFrames) - 1));
    std::string to;
    for (const Words& options : {Words{"--cut-link-after ", "--die-after "},
                                 Words{"--cut-after-sent ", "--die-after-sent "}}) {
        int count = 0;
        words >> count >> to;
        faults.frames += count;
        for (int i = std::max(1, count - most + 1); i <= count; ++i)
            for (const std::string& option : options)
                faults.all.push_back(option + std::to_string(i));
    }
}

// True for a call that may change a file of which something is promised.
bool Changes(const CallLine& call)
{
    static const std::set<std::string> kinds = {"write", "fwrite", "open", "rename",   "unlink",
                                                "fsync", "syncfs", "sync", "ftruncate"};
    const auto isOf = [&](const char* name) { return Contains(call.subject, name); };
    return kinds.count(call.kind) > 0 && !isOf(kLogs) && !isOf(kController) && !isOf("_sock");
}

// The power fails after each call that changes a file; of a run of writes to one file, only around
// the first and the last. An empty fault is the end.
void AddCuts(Faults& faults, const std::vector<CallLine>& calls)
{
    const auto areAlike = [&](std::size_t i) {
        return calls[i].kind == calls[i + 1].kind && calls[i].subject == calls[i + 1].subject;
    };
    for (std::size_t i = 0; i + 1 < calls.size(); ++i)
        if (Changes(calls[i]) && !(i > 0 && areAlike(i - 1) && areAlike(i)))
            faults.all.push_back(calls[i + 1].Fault("crash"));
    faults.all.emplace_back();
}

Faults FaultsOf(const Scenario& scenario, const FaultyUnit& unit)
{
    constexpr std::size_t kLastCalls = 60;
    // A copy begins right after the controller has connected.
    std::vector<CallLine> calls = unit.Calls(scenario.points == Points::Calls ? "" : "accept ");
    Faults faults;
    if (scenario.points == Points::Cuts)
        AddCuts(faults, calls);
    else if (scenario.points != Points::Calls)
        calls.erase(calls.begin(), calls.end() - std::min(calls.size(), kLastCalls));
    faults.calls = calls.size();
    for (const CallLine& call : calls) {
        if (scenario.points == Points::Cuts)
            continue;
        for (const std::string& error : ErrorsOf(call.kind, call.subject))
            faults.all.push_back(call.Fault(error));
        if (scenario.points == Points::LastCallsAndPulls)
            faults.all.push_back(call.Fault("pull"));
    }
    if (scenario.frames > 0)
        AddFrames(faults, unit.MidiLog(), scenario.frames);
    return faults;
}

// Runs the scenario with a fault. What it throws is a violation. Finds all faults if `faults` isn't
// null.
Outcome Try(const Scenario& scenario, const std::string& fault, Faults* faults = nullptr)
{
    try {
        FaultyUnit unit(fault);
        unit.RunScenario(scenario);
        if (faults != nullptr)
            *faults = FaultsOf(scenario, unit);
        Check(unit.HasFault() == !fault.empty(), "the fault hasn't occurred");
        return unit.GetOutcome();
    } catch (const std::exception& violation) {
        std::cerr << scenario.name + ", " + fault + ": " + violation.what() + "\n";
        return Outcome::Violation;
    }
}

// Tries every N-th fault and counts the outcomes. Each attempt is a process, since a unit starts
// others.
std::vector<std::size_t> TryAll(const Scenario& scenario, const Words& faults, std::size_t every)
{
    std::vector<std::size_t> counts(static_cast<int>(Outcome::Violation) + 1);
    std::size_t running = 0;
    const auto awaitOne = [&] {
        int status = 0;
        wait(&status);
        ++counts[WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(Outcome::Violation)];
        --running;
    };
    for (std::size_t i = 0; i < faults.size(); i += every) {
        if (running == std::max(1U, std::thread::hardware_concurrency()))
            awaitOne();
        if (fork() == 0)
            _exit(static_cast<int>(Try(scenario, faults[i])));
        ++running;
    }
    while (running > 0)
        awaitOne();
    return counts;
}

// Prints a row of the table. False when a promise is broken.
bool Sweep(const Scenario& scenario, std::size_t every, const std::string& only)
{
    Faults faults{{only}};
    if (only.empty() && Try(scenario, "", &faults) != Outcome::Kept)
        return false;
    const std::vector<std::size_t> counts = TryAll(scenario, faults.all, every);
    std::cout << "| " << scenario.name << " | " << faults.calls << " | " << faults.frames << " | "
              << std::accumulate(counts.begin(), counts.end(), std::size_t{});
    for (const std::size_t count : counts)
        std::cout << " | " << count;
    std::cout << " |" << std::endl;
    return counts.back() == 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const Words words(argv + 1, argv + argc);
    const std::size_t every = words.empty() ? 1 : std::strtoul(words[0].c_str(), nullptr, 10);
    if (every == 0 || words.size() > 3) {
        std::cerr << "sweep [EVERY [SCENARIO [FAULT]]]\n";
        return 2;
    }
    if (words.size() == 3)
        setenv("DIAG_KEEP", "1", 1);
    std::cout << "| scenario | calls | frames | faults | kept | reported | lost | violations |\n"
                 "|---|---|---|---|---|---|---|---|"
              << std::endl;
    int good = 0;
    int failed = 0;
    for (const auto& scenarios : {DefaultScenarios(), StrictScenarios()})
        for (const Scenario& scenario : scenarios)
            if (words.size() < 2 || words[1] == scenario.name)
                ++(Sweep(scenario, every, words.size() == 3 ? words[2] : "") ? good : failed);
    return good > 0 && failed == 0 ? 0 : 1;
}
