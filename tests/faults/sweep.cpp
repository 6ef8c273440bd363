// Makes every call of every scenario fail, one at a time, with every error that fits it, and cuts
// the piano's link and ends the piano after every frame. Prints a table of the outcomes;
// docs/testing.md explains it.
//
//   sweep [--every N] [--jobs N] [--scenario NAME [--fault FAULT]]
//
// --every N tries every N-th fault; --jobs N runs so many units at once (as many as there are
// cores); --fault FAULT tries one, such as "write:3:EIO" or "--die-after 12", and keeps its unit.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "Scenario.h"

namespace {

using Words = std::vector<std::string>;

// A kind of call that a scenario makes more often than kMostCalls is tried at the first and the
// last kEdge and at as many evenly between.
constexpr std::size_t kMostCalls = 10000;
constexpr std::size_t kEdge = 100;

constexpr char kViolation[] = "violation";

const std::map<std::string, Words> kErrors = {
    {"socket read", {"ECONNRESET", "EIO", "EINTR", "short"}},
    {"socket write", {"EPIPE", "ECONNRESET", "EINTR", "short"}},
    {"read", {"EIO", "EINTR", "short"}},
    {"write", {"ENOSPC", "EIO", "EINTR", "short"}},
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
    {"utime", {"EIO", "EACCES"}},
};

const Words& ErrorsOf(std::string kind, const std::string& subject)
{
    if (kind == "fread" || kind == "fwrite")
        kind.erase(0, 1);
    const bool isSocket =
        Contains(subject, kMidiLink) || Contains(subject, kRcLink) || subject == kController;
    return kErrors.at(isSocket && (kind == "read" || kind == "write") ? "socket " + kind : kind);
}

// What can go wrong in a scenario, and what it does when nothing goes wrong.
struct Faults {
    Words all;
    std::size_t calls = 0;
    int frames = 0;
    std::string sampled;  // the kinds of which not each call is tried
};

bool IsTried(std::size_t index, std::size_t count)
{
    return count <= kMostCalls || index < kEdge || index >= count - kEdge ||
           index % (count / kEdge) == 0;
}

void AddCalls(Faults& faults, const std::string& list)
{
    std::map<std::string, Words> subjects;  // of a kind's calls, in their order
    std::istringstream lines(list);
    std::string kind;
    std::string number;
    for (std::string subject; lines >> kind >> number >> subject; ++faults.calls)
        subjects[kind].push_back(subject);
    for (const auto& [each, all] : subjects) {
        for (std::size_t i = 0; i < all.size(); ++i) {
            const std::string call = each + ":" + std::to_string(i + 1) + ":";
            if (IsTried(i, all.size()))
                for (const std::string& error : ErrorsOf(each, all[i]))
                    faults.all.push_back(call + error);
        }
        if (all.size() > kMostCalls)
            faults.sampled += " " + each + " " + std::to_string(all.size());
    }
}

// The scenario's own piano is the first that ends, and notes its frames then.
void AddFrames(Faults& faults, const std::string& passed, int most)
{
    constexpr char kFrames[] = " frames ";
    const std::size_t at = passed.find(kFrames);
    Check(at != std::string::npos, "the piano hasn't noted its frames");
    std::istringstream words(passed.substr(at + sizeof(kFrames) - 1));
    int came = 0;
    int went = 0;
    std::string skipped;
    words >> came >> skipped >> went;
    faults.frames = came + went;
    const auto add = [&](int count, const char* cut, const char* die) {
        for (int i = std::max(1, count - most + 1); i <= count; ++i)
            for (const char* option : {cut, die})
                faults.all.push_back(option + (" " + std::to_string(i)));
    };
    add(came, "--cut-link-after", "--die-after");
    add(went, "--cut-after-sent", "--die-after-sent");
}

Faults FaultsOf(const Scenario& scenario)
{
    FaultyUnit unit("");
    unit.Set("SIMUNIT_CALLS=" + unit.Path("sim/calls"));
    scenario.run(unit);
    Faults faults;
    AddCalls(faults, unit.Read("sim/calls"));
    if (scenario.frames > 0)
        AddFrames(faults, unit.MidiLog(), scenario.frames);
    return faults;
}

// The class of the outcome, in a line. A violation is reported on standard error.
std::string Try(const Scenario& scenario, const std::string& fault)
{
    try {
        FaultyUnit unit(fault);
        const std::string outcome = scenario.run(unit);
        return (unit.HasFault() ? outcome : "the fault didn't come") + "\n";
    } catch (const std::exception& violation) {
        std::cerr << scenario.name << ", " + fault + ": " + violation.what() + "\n";
        return std::string(kViolation) + "\n";
    }
}

using Outcomes = std::map<std::string, int>;

// Each job is a process, since a unit starts others. Lines are short enough to be written whole.
Outcomes TryAll(const Scenario& scenario, const Words& faults, std::size_t jobs)
{
    int ends[2];
    if (pipe(ends) < 0)
        std::exit(2);
    for (std::size_t job = 0; job < jobs; ++job) {
        if (fork() != 0)
            continue;
        for (std::size_t i = job; i < faults.size(); i += jobs) {
            const std::string line = Try(scenario, faults[i]);
            if (write(ends[1], line.data(), line.size()) < 0)
                _exit(1);
        }
        _exit(0);
    }
    close(ends[1]);
    Outcomes outcomes;
    std::string line;
    for (char byte = 0; read(ends[0], &byte, 1) == 1;) {
        if (byte != '\n')
            line += byte;
        else
            ++outcomes[std::exchange(line, "")];
    }
    close(ends[0]);
    while (wait(nullptr) > 0) {
    }
    return outcomes;
}

// Prints a row of the table. False when anything is violated or not tried.
bool Sweep(const Scenario& scenario, std::size_t every, std::size_t jobs)
{
    static std::size_t number = 0;  // of the fault, over all scenarios
    Faults faults;
    try {
        faults = FaultsOf(scenario);
    } catch (const std::exception& violation) {
        std::cerr << scenario.name << ", without a fault: " << violation.what() << "\n";
        return false;
    }
    Words taken;
    for (const std::string& fault : faults.all)
        if (number++ % every == 0)
            taken.push_back(fault);
    Outcomes outcomes = TryAll(scenario, taken, jobs);
    const int violated = std::exchange(outcomes[kViolation], 0);
    std::cout << "| " << scenario.name << " | " << faults.calls << faults.sampled << " | "
              << faults.frames << " | " << taken.size() << " | ";
    std::size_t passed = 0;
    for (const auto& [outcome, count] : outcomes) {
        if (count > 0)
            std::cout << (passed > 0 ? "; " : "") << outcome << " " << count;
        passed += static_cast<std::size_t>(count);
    }
    std::cout << " | " << violated << " |" << std::endl;
    return passed == taken.size();
}

}  // namespace

int main(int argc, char** argv)
{
    std::map<std::string, std::string> options = {
        {"--every", "1"},
        {"--jobs", std::to_string(std::max(1U, std::thread::hardware_concurrency()))},
        {"--scenario", ""},
        {"--fault", ""}};
    bool isGood = argc % 2 == 1;
    for (int i = 1; i + 1 < argc; i += 2) {
        isGood = isGood && options.count(argv[i]) > 0;
        options[argv[i]] = argv[i + 1];
    }
    const std::size_t every = std::strtoul(options["--every"].c_str(), nullptr, 10);
    const std::size_t jobs = std::strtoul(options["--jobs"].c_str(), nullptr, 10);
    if (!isGood || every == 0 || jobs == 0) {
        std::cerr << "sweep [--every N] [--jobs N] [--scenario NAME [--fault FAULT]]\n";
        return 2;
    }
    const bool isOne = !options["--fault"].empty();
    if (isOne)
        setenv("DIAG_KEEP", "1", 1);
    else
        std::cout << "| scenario | calls | frames | faults | outcomes | violations |\n"
                     "|---|---|---|---|---|---|"
                  << std::endl;
    int tried = 0;
    int failed = 0;
    for (const Scenario& scenario : kScenarios) {
        if (!options["--scenario"].empty() && options["--scenario"] != scenario.name)
            continue;
        ++tried;
        if (!isOne) {
            failed += Sweep(scenario, every, jobs) ? 0 : 1;
            continue;
        }
        const std::string outcome = Try(scenario, options["--fault"]);
        std::cout << outcome;
        failed += outcome.rfind(kViolation, 0) == 0 ? 1 : 0;
    }
    return tried > 0 && failed == 0 ? 0 : 1;
}
