#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "FakeLink.h"
#include "ReadRules.h"
#include "TCspReader.h"

// The program's read-back under the walk. Every line, timeout and step is held against ReadRules:
// the state that it leaves, the record that it takes, the lines that it sends, the step's result.
class ReadMachine {
public:
    using State = ReadState;

    State Start();
    static const std::vector<const char*>& EventNames();
    std::optional<int> Apply(const std::string& event);
    void Load(const State& state);
    State Save() const;
    void CheckSilence();
    std::optional<State> Restart();

    // Passes in which nothing happens, with flash mode once more in each 100,000; and all of the
    // parameter flash, which is asked for once for each of its blocks.
    void CheckLongRuns();

    // All fields, or the classes of counters and addresses: a counter at 0, below the limit, at it;
    // an address at the start of its block or inside.
    static std::string Whole(const State& state);
    static std::string Folded(const State& state);

private:
    int Step();
    int Wait();
    int Hear(const CspLine& line);
    int HearToTheLimit();
    std::optional<int> HearBlock();
    // Data of so many bytes, so far from where the next record has to begin.
    CspLine Record(int distance, std::uint32_t count) const;
    void CheckManyPasses();
    void CheckWholeRead();
    void CheckGoodConversation();
    void Compare(const ReadRules::Outcome& expected, const char* otherwise);

    FakeLink link;
    TCspReader reader;
    std::set<std::string> tried;  // the new starts behind which a good conversation was held
    long asked = 0;               // times that the machine has asked for a block
};
