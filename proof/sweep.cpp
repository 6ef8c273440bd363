// Makes every call of every road of the program fail, one at a time, with every error that fits the
// call, and cuts the link and ends the peer after every frame. Prints a table.
//
//   sweep [--every N] [--most N] [--jobs N] [--road NAME]
//
// --every N takes every N-th fault; --most N takes at most so many places of one kind of call,
// evenly spread; --jobs N runs so many units at once.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "Road.h"

namespace {

constexpr int kSpeed = 100;
constexpr int kUpdateFrames = 60;  // frames behind which the link of an update is cut

struct Options {
    int every = 1;
    int most = 40;
    int jobs = 2;
    std::string road;
};

// The errors that fit a call, as the simulated unit names them.
const std::map<std::string, std::vector<std::string>>& ErrorsOf()
{
    static const std::map<std::string, std::vector<std::string>> errors = {
        {"open", {"EACCES", "EMFILE", "EIO"}},
        {"read", {"EIO", "EINTR", "ECONNRESET", "short"}},
        {"write", {"EPIPE", "EIO", "ENOSPC", "EINTR", "short"}},
        {"connect", {"ECONNREFUSED", "EACCES", "EINTR"}},
        {"accept", {"EMFILE", "EINTR", "ECONNABORTED"}},
        {"select", {"EINTR", "ENOMEM"}},
        {"stat", {"EACCES", "EIO"}},
        {"statfs", {"EIO"}},
        {"unlink", {"EACCES", "EIO"}},
        {"rename", {"EACCES", "ENOSPC"}},
        {"mount", {"EIO", "EACCES"}},
        {"umount", {"EINVAL", "EBUSY"}},
        {"ioctl", {"EIO", "EINTR"}},
        {"socket", {"EMFILE", "EACCES"}},
        {"bind", {"EACCES", "EADDRINUSE"}},
        {"listen", {"EADDRINUSE"}},
        {"utime", {"EIO"}},
    };
    return errors;
}

struct Trial {
    const Road* road;
    std::string fault;  // for the program, "" for none
    Unit::Words piano;  // for simpiano
};

// How often each kind of call is made when nothing goes wrong.
std::map<std::string, int> Count(const Road& road)
{
    Unit unit(kSpeed);
    unit.Set("SIMUNIT_COUNT=" + unit.Path("sim/counts"));
    const Outcome outcome = road.run(unit, {});
    if (!outcome.violation.empty()) {
        std::cerr << road.name << " without a fault: " << outcome.violation << "\n";
        std::exit(1);
    }
    std::map<std::string, int> counts;
    std::istringstream lines(unit.Read("sim/counts"));
    std::string kind;
    for (int number = 0; lines >> kind >> number;)
        counts[kind] = number;
    return counts;
}

std::vector<Trial> TrialsOf(const Road& road, int most)
{
    std::vector<Trial> trials;
    for (const auto& [kind, count] : Count(road)) {
        const auto errors = ErrorsOf().find(kind);
        if (errors == ErrorsOf().end())
            continue;
        const int places = std::min(count, most);
        for (int i = 0; i < places; ++i) {
            const int place = 1 + static_cast<int>(static_cast<long>(i) * count / places);
            for (const std::string& error : errors->second)
                trials.push_back({&road, kind + ":" + std::to_string(place) + ":" + error, {}});
        }
    }
    if (road.name == "stand-alone update" || road.name == "read-back") {
        for (int frame = 1; frame <= kUpdateFrames; ++frame) {
            for (const char* way : {"--cut-link-after", "--die-after"})
                trials.push_back({&road, "", {way, std::to_string(frame)}});
        }
    }
    return trials;
}

// One line a trial: the result, a tab, the violation or nothing.
void RunShare(const std::vector<Trial>& trials, int job, int jobs, int out)
{
    for (std::size_t i = static_cast<std::size_t>(job); i < trials.size();
         i += static_cast<std::size_t>(jobs)) {
        const Trial& trial = trials[i];
        Outcome outcome;
        {
            Unit unit(kSpeed);
            if (!trial.fault.empty())
                unit.Set("SIMUNIT_FAULT=" + trial.fault);
            outcome = trial.road->run(unit, trial.piano);
        }
        std::string line = outcome.result + "\t";
        if (!outcome.violation.empty()) {
            line += trial.fault;
            for (const std::string& word : trial.piano)
                line += " " + word;
            line += ": " + outcome.violation;
        }
        std::replace(line.begin(), line.end(), '\n', ' ');
        line += "\n";
        if (write(out, line.data(), line.size()) < 0)
            _exit(1);
    }
}

// Each job is a process, since a unit starts others.
std::string RunAll(const std::vector<Trial>& trials, int jobs)
{
    int ends[2];
    if (pipe(ends) < 0)
        std::exit(1);
    for (int job = 0; job < jobs; ++job) {
        if (fork() == 0) {
            close(ends[0]);
            RunShare(trials, job, jobs, ends[1]);
            _exit(0);
        }
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

int Sweep(const Road& road, const Options& options, std::size_t& number)
{
    std::vector<Trial> trials;
    for (const Trial& trial : TrialsOf(road, options.most)) {
        if (number++ % static_cast<std::size_t>(options.every) == 0)
            trials.push_back(trial);
    }
    std::map<std::string, int> results;
    std::vector<std::string> violations;
    std::istringstream lines(RunAll(trials, options.jobs));
    int ran = 0;
    for (std::string line; std::getline(lines, line); ++ran) {
        const std::size_t tab = line.find('\t');
        if (tab + 1 < line.size())
            violations.push_back(line.substr(tab + 1));
        else
            ++results[line.substr(0, tab)];
    }
    std::cout << "| " << road.name << " | " << ran << " | ";
    const char* separator = "";
    for (const auto& [result, count] : results) {
        std::cout << separator << result << " " << count;
        separator = "; ";
    }
    std::cout << " | " << violations.size() << " |" << std::endl;
    for (const std::string& violation : violations)
        std::cerr << "  " << violation << "\n";
    const bool allRan = ran == static_cast<int>(trials.size());
    return violations.empty() && allRan ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const char* value = argv[i + 1];
        if (name == "--road")
            options.road = value;
        else if (name == "--every")
            options.every = std::max(1, std::atoi(value));
        else if (name == "--most")
            options.most = std::max(1, std::atoi(value));
        else if (name == "--jobs")
            options.jobs = std::max(1, std::atoi(value));
    }
    std::cout << "| road | faults | outcomes | violations |\n|---|---|---|---|" << std::endl;
    int status = 0;
    std::size_t number = 0;
    for (const Road& road : Roads()) {
        if (options.road.empty() || options.road == road.name)
            status |= Sweep(road, options, number);
    }
    return status;
}
