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

// One line: the outcome, a tab, the violation or nothing.
std::string Try(const Scenario& scenario, const std::string& fault, bool keep = false)
{
    std::string line;
    try {
        FaultyUnit unit(fault);
        if (keep) {
            unit.Keep();
            std::cout << unit.Path() << "\n";
        }
        const std::string outcome = scenario.run(unit);
        line = (unit.HasFault() ? outcome : "the fault didn't come") + "\t";
    } catch (const std::exception& violation) {
        line = "\t" + fault + ": " + violation.what();
    }
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line + "\n";
}

// Each job is a process, since a unit starts others. Lines are short enough to be written whole.
std::string TryAll(const Scenario& scenario, const Words& faults, std::size_t jobs)
{
    int ends[2];
    if (pipe(ends) < 0)
        std::exit(2);
    for (std::size_t job = 0; job < jobs; ++job) {
        if (fork() != 0)
            continue;
        close(ends[0]);
        for (std::size_t i = job; i < faults.size(); i += jobs) {
            const std::string line = Try(scenario, faults[i]);
            if (write(ends[1], line.data(), line.size()) < 0)
                _exit(1);
        }
        _exit(0);
    }
    close(ends[1]);
    std::string lines;
    char bytes[4096];
    for (ssize_t count = 0; (count = read(ends[0], bytes, sizeof(bytes))) > 0;)
        lines.append(bytes, static_cast<std::size_t>(count));
    close(ends[0]);
    while (wait(nullptr) > 0) {
    }
    return lines;
}

// Prints a row of the table. The number of faults that were tried without a violation.
std::size_t Report(const Scenario& scenario, const Faults& faults, const std::string& reports)
{
    std::map<std::string, std::size_t> outcomes;
    std::string violations;
    std::size_t failed = 0;
    std::size_t passed = 0;
    std::istringstream lines(reports);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t tab = line.find('\t');
        const bool isViolation = tab + 1 < line.size();
        if (isViolation)
            violations += "  " + line.substr(tab + 1) + "\n";
        else
            ++outcomes[line.substr(0, tab)];
        ++(isViolation ? failed : passed);
    }
    std::cout << "| " << scenario.name << " | " << faults.calls << faults.sampled << " | "
              << faults.frames << " | " << passed + failed << " | ";
    const char* separator = "";
    for (const auto& [outcome, count] : outcomes) {
        std::cout << separator << outcome << " " << count;
        separator = "; ";
    }
    std::cout << " | " << failed << " |" << std::endl;
    std::cerr << violations;
    return passed;
}

struct Options {
    std::size_t every = 1;
    std::size_t jobs = std::max(1U, std::thread::hardware_concurrency());
    std::string scenario;
    std::string fault;
};

// False when they name what there isn't.
bool Parse(int argc, char** argv, Options& options)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        std::istringstream value(argv[i + 1]);
        if (name == "--scenario")
            options.scenario = value.str();
        else if (name == "--fault")
            options.fault = value.str();
        else if (name == "--every" ? !(value >> options.every)
                                   : name != "--jobs" || !(value >> options.jobs))
            return false;
    }
    return argc % 2 == 1 && options.every > 0 && options.jobs > 0;
}

// True when nothing is violated. `number` counts the faults of all scenarios.
bool Sweep(const Scenario& scenario, const Options& options, std::size_t& number)
{
    if (!options.fault.empty()) {
        const std::string line = Try(scenario, options.fault, true);
        ++number;
        std::cout << line;
        return line[0] != '\t';
    }
    Faults faults;
    try {
        faults = FaultsOf(scenario);
    } catch (const std::exception& violation) {
        std::cerr << scenario.name << ", without a fault: " << violation.what() << "\n";
        return false;
    }
    Words taken;
    for (const std::string& fault : faults.all)
        if (number++ % options.every == 0)
            taken.push_back(fault);
    const std::string reports = TryAll(scenario, taken, options.jobs);
    return Report(scenario, faults, reports) == taken.size();
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!Parse(argc, argv, options)) {
        std::cerr << "sweep [--every N] [--jobs N] [--scenario NAME [--fault FAULT]]\n";
        return 2;
    }
    std::cout << "| scenario | calls | frames | faults | outcomes | violations |\n"
                 "|---|---|---|---|---|---|"
              << std::endl;
    int failed = 0;
    std::size_t number = 0;
    for (const Scenario& scenario : kScenarios)
        if (options.scenario.empty() || options.scenario == scenario.name)
            failed += Sweep(scenario, options, number) ? 0 : 1;
    return number == 0 || failed > 0 ? 1 : 0;
}
