// Makes every call of every scenario fail, one at a time, with every error that fits it, and in the
// read-backs and updates cuts the piano's link or ends the piano after every frame. Prints a table
// of the outcomes, which docs/testing.md explains.
//
// Cuts the power in the strict runs after each call that changes a file.
//
//   sweep [EVERY [SCENARIO [FAULT]]]
//
// tries every N-th fault, by default every one, of all rows of the table or of one. Or it tries a
// single fault, such as "write:3:EIO" or "--die-after 12", and keeps its unit.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <numeric>
#include <optional>
#include <sstream>
#include <thread>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "FaultyUnit.h"
#include "StrictRun.h"

namespace {

using Words = Unit::Words;

const std::map<std::string, Words> kErrors = {
    {"socket read", {"ECONNRESET", "EIO", "EINTR", "short"}},
    {"socket write", {"EPIPE", "ECONNRESET", "EINTR", "short"}},
    {"read", {"EIO", "EINTR", "short"}},
    {"write", {"ENOSPC", "EIO", "EINTR", "short"}},
    {"fread", {"EIO", "EINTR", "short"}},
    {"fwrite", {"ENOSPC", "EIO", "EINTR", "short"}},
    {"open", {"EACCES", "EMFILE", "EIO"}},
    {"connect", {"ECONNREFUSED", "EACCES", "EINTR"}},
    {"accept", {"EMFILE", "EINTR", "ECONNABORTED"}},
    {"select", {"EINTR", "ENOMEM"}},
    {"stat", {"EACCES", "EIO"}},
    {"statfs", {"EIO"}},
    {"unlink", {"EACCES", "EIO"}},
    {"rename", {"EACCES", "ENOSPC", "EIO"}},
    {"mount", {"EIO", "EACCES"}},
    {"umount", {"EINVAL", "EBUSY"}},
    {"ioctl", {"EIO", "EINTR"}},
    {"socket", {"EMFILE", "EACCES"}},
    {"bind", {"EACCES", "EADDRINUSE"}},
    {"listen", {"EADDRINUSE"}},
    {"ftruncate", {"EIO"}},
    {"fsync", {"EIO", "ENOSPC"}},
    {"syncfs", {"EIO"}},
    {"sync", {}},
    {"utime", {"EIO", "EACCES"}},
};

const Words& ErrorsOf(const std::string& kind, const std::string& subject)
{
    const bool isSocket =
        Contains(subject, kMidiLink) || Contains(subject, kRcLink) || subject == kController;
    return kErrors.at(isSocket && (kind == "read" || kind == "write") ? "socket " + kind : kind);
}

// All faults of a scenario, and its calls and frames without a fault.
struct Faults {
    Words all;
    std::size_t calls = 0;
    int frames = 0;
};

void AddCalls(Faults& faults, const std::vector<CallLine>& calls)
{
    faults.calls += calls.size();
    for (const CallLine& call : calls)
        for (const std::string& error : ErrorsOf(call.kind, call.subject))
            faults.all.push_back(call.Fault(error));
}

// The piano of the scenario ends first, and then records its frames.
void AddFrames(Faults& faults, const std::string& passed, int most)
{
    constexpr char kFrames[] = " frames ";
    const std::size_t at = passed.find(kFrames);
    Check(at != std::string::npos, "the piano hasn't recorded its frames");
    std::istringstream words(passed.substr(at + sizeof(kFrames) - 1));
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

using Attempt = std::function<Outcome(const std::string& fault)>;

// Makes the attempt. What it throws is a violation.
Outcome Judge(const std::string& row, const std::string& fault, const Attempt& attempt)
{
    try {
        return attempt(fault);
    } catch (const std::exception& violation) {
        std::cerr << row + ", " + fault + ": " + violation.what() + "\n";
        return Outcome::Violation;
    }
}

// Runs the scenario with a fault. Collects all faults if `faults` isn't null.
Outcome Try(const Scenario& scenario, const std::string& fault, Faults* faults = nullptr)
{
    FaultyUnit unit(fault);
    if (faults != nullptr)
        unit.Set("SIMUNIT_CALLS=" + unit.Path("sim/calls"));
    unit.Run(scenario);
    if (faults != nullptr)
        AddCalls(*faults, CallLines(unit.Read("sim/calls")));
    if (faults != nullptr && scenario.frames > 0)
        AddFrames(*faults, unit.MidiLog(), scenario.frames);
    Check(unit.HasFault() == !fault.empty(), "the fault hasn't occurred");
    return unit.GetOutcome();
}

using Counts = std::atomic<std::size_t>[static_cast<int>(Outcome::Violation) + 1];

// Tries every N-th fault. Each job is a process, since a unit starts others.
void TryAll(const std::string& row, const Words& faults, std::size_t every, const Attempt& attempt,
            Counts& counts)
{
    const std::size_t jobs = std::max(1U, std::thread::hardware_concurrency());
    for (std::size_t job = 0; job < jobs; ++job) {
        if (fork() != 0)
            continue;
        for (std::size_t i = job * every; i < faults.size(); i += jobs * every)
            ++counts[static_cast<int>(Judge(row, faults[i], attempt))];
        _exit(0);
    }
    while (wait(nullptr) > 0) {
    }
}

// Prints a row of the table. False when a promise is broken or a fault wasn't tried.
bool PrintRow(const std::string& name, const Faults& faults, std::size_t every,
              const Attempt& attempt)
{
    auto& counts = *static_cast<Counts*>(
        mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    TryAll(name, faults.all, every, attempt, counts);
    const std::size_t tried = std::accumulate(std::begin(counts), std::end(counts), std::size_t{});
    std::cout << "| " << name << " | " << faults.calls << " | " << faults.frames << " | " << tried;
    for (const auto& count : counts)
        std::cout << " | " << count;
    std::cout << " |" << std::endl;
    return tried == (faults.all.size() + every - 1) / every &&
           counts[static_cast<int>(Outcome::Violation)] == 0;
}

bool Sweep(const Scenario& scenario, std::size_t every, const std::string& only)
{
    Faults faults{{only}};
    const auto plan = [&](const std::string& none) { return Try(scenario, none, &(faults = {})); };
    if (only.empty() && Judge(scenario.name, "", plan) != Outcome::Kept)
        return false;
    return PrintRow(scenario.name, faults, every,
                    [&](const std::string& fault) { return Try(scenario, fault); });
}

// The faults of a strict run: its last calls, and a medium that is pulled out before one.
Faults FaultsOf(const StrictRun& run, bool usesMedium)
{
    constexpr std::size_t kMostCalls = 60;
    std::vector<CallLine> calls = run.Calls();
    calls.erase(calls.begin(),
                calls.end() - static_cast<std::ptrdiff_t>(std::min(calls.size(), kMostCalls)));
    Faults faults;
    AddCalls(faults, calls);
    for (const CallLine& call : calls)
        if (usesMedium)
            faults.all.push_back(call.Fault("pull"));
    return faults;
}

constexpr char kPowerCut[] = ", power cut";

// The faults, or the power cuts.
bool Sweep(const StrictRun::Scenario& scenario, const std::string& row, std::size_t every,
           const std::string& only)
{
    std::optional<StrictRun> run;
    Faults faults{{only}};
    const auto plan = [&](const std::string&) {
        run.emplace(scenario);
        if (only.empty() && row == scenario.name)
            faults = FaultsOf(*run, !scenario.group.empty());
        else if (only.empty())
            faults = {run->Cuts(), run->Calls().size()};
        return Outcome::Kept;
    };
    return Judge(row, "no fault", plan) == Outcome::Kept &&
           PrintRow(row, faults, every, [&](const std::string& fault) { return run->Try(fault); });
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
    const std::string only = words.size() == 3 ? words[2] : "";
    const auto isWanted = [&](const std::string& row) {
        return words.size() < 2 || words[1] == row;
    };
    for (const Scenario& scenario : kScenarios)
        if (isWanted(scenario.name))
            ++(Sweep(scenario, every, only) ? good : failed);
    for (const StrictRun::Scenario& scenario : StrictRun::kScenarios)
        for (const std::string& row : {scenario.name, scenario.name + kPowerCut})
            if (isWanted(row))
                ++(Sweep(scenario, row, every, only) ? good : failed);
    return good > 0 && failed == 0 ? 0 : 1;
}
