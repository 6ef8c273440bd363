// Walks through the conversations with the CSP: every class of answer, silence and passes of the
// loop, in every state of the two state machines that they lead to. Prints a table and ends with
// status 1 when something doesn't hold. docs/exploration.md tells what is held, and what not.
//
//   explore [STATES]
//
// Each machine is walked twice: to the last of its states, with counters and addresses told apart
// by classes, and through its first STATES (10000) states with nothing folded. No limit is one of
// time, so a busy machine walks the same way.
//
// Built without access control: a state is saved and restored field by field.

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "ReadMachine.h"
#include "UpdateMachine.h"
#include "Walk.h"

namespace {

constexpr long kNoLimit = LONG_MAX;
constexpr long kWholeStates = 10000;
constexpr long kLeastStates = 1000;  // fewer would mean that the walk got stuck

using Clock = std::chrono::steady_clock;

// False when something doesn't hold or too little was walked.
template <class Machine, class Key>
bool Report(const char* name, Machine&& machine, const Key& key, long most)
{
    const auto begin = Clock::now();
    const Walk<Machine> walk(machine, key, most);
    const std::chrono::duration<double> took = Clock::now() - begin;
    const Totals& totals = walk.Result();
    const bool isWhole = most != kNoLimit;
    std::fprintf(stderr, "| %s | %s | %d | %ld | %ld | %ld | %.1f | %d |\n", name,
                 isWhole ? "no" : "yes", totals.depth, totals.states, totals.transitions,
                 totals.ends, took.count(), walk.Found().empty() ? 0 : 1);
    if (!walk.Found().empty()) {
        std::fprintf(stderr, "violation: %s\n", walk.Found().c_str());
        return false;
    }
    const bool isEnough = isWhole ? totals.states >= most : totals.complete;
    if (!isEnough || totals.states < kLeastStates)
        std::fprintf(stderr, "too few states were walked\n");
    return isEnough && totals.states >= kLeastStates;
}

// The arguments make the machine.
template <class Machine, class... Arguments>
bool Explore(const char* name, long states, Arguments... arguments)
{
    const bool folded = Report(name, Machine(arguments...), &Machine::Folded, kNoLimit);
    const bool whole = Report(name, Machine(arguments...), &Machine::Whole, states);
    Machine(arguments...).CheckLongRuns();
    return folded && whole;
}

bool ExploreAll(long states)
{
    const bool update = Explore<UpdateMachine>("update mode", states, false);
    const bool serverUpdate = Explore<UpdateMachine>("update in the server", states, true);
    const bool read = Explore<ReadMachine>("read-back", states);
    return update && serverUpdate && read;
}

}  // namespace

int main(int argc, char** argv)
{
    constexpr int kDecimal = 10;
    const long states = argc > 1 ? std::strtol(argv[1], nullptr, kDecimal) : kWholeStates;
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return 2;
    std::fprintf(stderr, "| machine | folded | depth | states | transitions | ends | seconds | "
                         "violations |\n|---|---|---|---|---|---|---|---|\n");
    try {
        return ExploreAll(states) ? 0 : 1;
    } catch (const Violation& violation) {
        std::fprintf(stderr, "violation: %s\n", violation.what.c_str());
        return 1;
    }
}
