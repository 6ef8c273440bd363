#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "Violation.h"

struct Totals {
    long states = 0;
    long transitions = 0;
    long ends = 0;
    int depth = 0;
    bool complete = false;  // every state that was reached has been walked
};

// A walk through a machine's states, breadth first, so that the first violation found has the
// shortest story. States with the same key are taken for one and walked once.
//
// A machine offers State, EventNames, and
//    Start()         the first state;
//    Load(state)     puts the machine into a state;
//    Apply(event)    lets one event happen and holds what must be true; the last step's result, or
//                    nothing where the event can't be;
//    Save()          the state that it has reached;
//    CheckSilence()  holds that from there silence alone comes to an end;
//    Restart()       behind an end: clears the machine and starts it anew; nothing when the mode
//                    ends there or when the new start ends at its first step.
template <class Machine>
class Walk {
public:
    using State = typename Machine::State;

    // `key` tells states apart. Ends with `most` states.
    template <class Key>
    Walk(Machine& walked, const Key& key, long most) : machine(walked)
    {
        Guard([] { return ""; }, [&] { Reach(machine.Start(), kNowhere, ""); });
        std::size_t at = 0;
        for (; at < nodes.size() && totals.states < most && found.empty(); ++at) {
            seen.insert(key(nodes[at].state));
            totals.depth = nodes[at].depth;
            for (const char* event : machine.EventNames())
                Guard(StoryOf(at, event), [&] {
                    const std::optional<State> next = Follow(at, event);
                    if (next && seen.insert(key(*next)).second)
                        Reach(*next, at, event);
                });
        }
        totals.complete = at == nodes.size();
    }

    const Totals& Result() const { return totals; }
    // The story of the violation, empty without one.
    const std::string& Found() const { return found; }

private:
    static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

    struct Node {
        State state;
        std::size_t from;
        const char* event;
        int depth;
    };

    void Reach(const State& state, std::size_t from, const char* event)
    {
        const int depth = from == kNowhere ? 0 : nodes[from].depth + 1;
        nodes.push_back({state, from, event, depth});
        ++totals.states;
        machine.Load(state);
        machine.CheckSilence();
    }

    std::optional<State> Follow(std::size_t at, const char* event)
    {
        machine.Load(nodes[at].state);
        const std::optional<int> result = machine.Apply(event);
        if (!result)
            return std::nullopt;
        ++totals.transitions;
        if (*result > 0)
            return machine.Save();
        ++totals.ends;
        return machine.Restart();
    }

    template <class Story, class Act>
    void Guard(const Story& story, const Act& act)
    {
        if (!found.empty())
            return;
        try {
            act();
        } catch (const Violation& violation) {
            found = violation.what + "\n  by:" + story();
        }
    }

    auto StoryOf(std::size_t at, const char* event) const
    {
        return [this, at, event] { return Story(at) + " / " + event; };
    }

    std::string Story(std::size_t at) const
    {
        const Node& node = nodes[at];
        return node.from == kNowhere ? "" : Story(node.from) + " / " + node.event;
    }

    Machine& machine;
    std::vector<Node> nodes;
    std::unordered_set<std::string> seen;
    Totals totals;
    std::string found;
};
