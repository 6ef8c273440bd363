// Makes every call of every road of the program fail, one at a time, with every error that fits it,
// and cuts the piano's link and ends the piano behind every frame. Holds after each what the
// program promises, and prints a table; docs/faults.md has one of a full run and tells what is
// held. Reports of the sanitizers can only come in a build with them: the asan preset.
//
//   sweep [--every N] [--most N] [--jobs N] [--road NAME [--trial FAULT]]
//
// --every N takes every N-th trial; --most N takes at most so many (200) calls of one kind and
// frames of one direction, evenly spread; --jobs N runs so many units (2) at once; --trial FAULT
// makes one trial, such as "write:3:EIO" or "--die-after 12", and keeps its unit.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "Road.h"
#include "Trials.h"

namespace {

struct Options {
    int every = 1;
    int most = 200;
    int jobs = 2;
    std::string road;
    std::string trial;
};

std::string NameOf(const Trial& trial)
{
    std::string name = trial.fault;
    for (const std::string& word : trial.piano)
        name += (name.empty() ? "" : " ") + word;
    return name;
}

// The class of the outcome. Throws a Violation.
std::string Run(const Trial& trial)
{
    Stage stage(trial);
    const std::string outcome = trial.road->run(stage);
    return stage.HasFault() ? outcome : "the fault didn't come";
}

// One line: the outcome, a tab, the violation or nothing.
std::string Report(const Trial& trial)
{
    std::string line;
    try {
        line = Run(trial) + "\t";
    } catch (const Violation& violation) {
        line = "\t" + NameOf(trial) + ": " + violation.what;
    } catch (const std::exception& failure) {
        line = "\t" + NameOf(trial) + ": " + failure.what();
    }
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line + "\n";
}

// Each job is a process, since a unit starts others.
std::string RunAll(const std::vector<Trial>& trials, int jobs)
{
    int ends[2];
    if (pipe(ends) < 0)
        std::exit(2);
    for (int job = 0; job < jobs; ++job) {
        if (fork() != 0)
            continue;
        close(ends[0]);
        for (auto i = static_cast<std::size_t>(job); i < trials.size();
             i += static_cast<std::size_t>(jobs)) {
            const std::string line = Report(trials[i]);
            if (write(ends[1], line.data(), line.size()) < 0)
                _exit(1);
        }
        _exit(0);
    }
    close(ends[1]);
    std::string lines;
    char bytes[4096];
    ssize_t count = 0;
    while ((count = read(ends[0], bytes, sizeof(bytes))) > 0)
        lines.append(bytes, static_cast<std::size_t>(count));
    close(ends[0]);
    while (wait(nullptr) > 0) {
    }
    return lines;
}

struct Result {
    int ran = 0;
    std::map<std::string, int> outcomes;
    std::vector<std::string> violations;
};

Result Collect(const std::string& reports)
{
    Result result;
    std::istringstream lines(reports);
    for (std::string line; std::getline(lines, line); ++result.ran) {
        const std::size_t tab = line.find('\t');
        if (tab + 1 < line.size())
            result.violations.push_back(line.substr(tab + 1));
        else
            ++result.outcomes[line.substr(0, tab)];
    }
    return result;
}

void Print(const Road& road, const Trials& trials, const Result& result)
{
    std::cout << "| " << road.name << " | " << trials.calls << " | ";
    if (trials.frames > 0)
        std::cout << trials.frames;
    std::cout << " | " << result.ran << " | ";
    const char* separator = "";
    for (const auto& [outcome, count] : result.outcomes) {
        std::cout << separator << outcome << " " << count;
        separator = "; ";
    }
    std::cout << " | " << result.violations.size() << " | " << trials.spread << " |" << std::endl;
    for (const std::string& violation : result.violations)
        std::cerr << "  " << violation << "\n";
}

// True when everything holds.
bool Sweep(const Road& road, const Options& options, std::size_t& number)
{
    Trials trials;
    try {
        trials = TrialsOf(road, options.most);
    } catch (const Violation& violation) {
        std::cerr << road.name << ", without a fault: " << violation.what << "\n";
        return false;
    }
    std::vector<Trial> taken;
    for (const Trial& trial : trials.all)
        if (number++ % static_cast<std::size_t>(options.every) == 0)
            taken.push_back(trial);
    const Result result = Collect(RunAll(taken, options.jobs));
    Print(road, trials, result);
    return result.violations.empty() && result.ran == static_cast<int>(taken.size());
}

int Number(const char* text)
{
    constexpr int kDecimal = 10;
    return std::max(1, static_cast<int>(std::strtol(text, nullptr, kDecimal)));
}

// False when they name what there isn't.
bool Parse(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        const char* value = argv[i + 1];
        if (value == nullptr)
            return false;
        if (name == "--road")
            options.road = value;
        else if (name == "--trial")
            options.trial = value;
        else if (name == "--every")
            options.every = Number(value);
        else if (name == "--most")
            options.most = Number(value);
        else if (name == "--jobs")
            options.jobs = Number(value);
        else
            return false;
    }
    return options.trial.empty() || !options.road.empty();
}

std::vector<Road> Chosen(const std::string& name)
{
    std::vector<Road> chosen;
    for (const Road& road : Roads())
        if (name.empty() || road.name == name)
            chosen.push_back(road);
    return chosen;
}

// The trial of that name, for a close look. False when something doesn't hold.
bool RunOne(const Road& road, const std::string& name)
{
    bool holds = true;
    Trial trial{&road, name, {}};
    const std::size_t blank = name.find(' ');
    if (blank != std::string::npos)
        trial = {&road, "", {name.substr(0, blank), name.substr(blank + 1)}};
    Stage stage(trial);
    try {
        std::cout << road.run(stage) << "\n";
    } catch (const Violation& violation) {
        std::cout << "violation: " << violation.what << "\n";
        holds = false;
    }
    stage.unit.Keep();
    std::cout << stage.unit.Path() << "\n";
    return holds;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    const bool isGood = Parse(argc, argv, options);
    const std::vector<Road> roads = Chosen(options.road);
    if (!isGood || roads.empty()) {
        std::cerr << "sweep [--every N] [--most N] [--jobs N] [--road NAME [--trial FAULT]]\n";
        return 2;
    }
#ifdef __SANITIZE_ADDRESS__
    std::cout << "With the sanitizers.\n\n";
#else
    std::cout << "Without the sanitizers: their reports can't come.\n\n";
#endif
    if (!options.trial.empty())
        return RunOne(roads.front(), options.trial) ? 0 : 1;
    std::cout << "| road | calls | frames | faults | outcomes | violations | spread |\n"
                 "|---|---|---|---|---|---|---|"
              << std::endl;
    bool holds = true;
    std::size_t number = 0;
    for (const Road& road : roads)
        holds = Sweep(road, options, number) && holds;
    return holds ? 0 : 1;
}
