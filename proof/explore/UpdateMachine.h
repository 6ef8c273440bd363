#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "FakeLink.h"
#include "HexImage.h"
#include "TUpdater.h"
#include "UpdateRules.h"

// The program's update under the walk, in one of its two modes. Every answer, timeout and step is
// held against UpdateRules: the state that it leaves, the lines that it sends, the step's result.
class UpdateMachine {
public:
    using State = UpdateState;

    explicit UpdateMachine(bool server);
    ~UpdateMachine();
    UpdateMachine(const UpdateMachine&) = delete;
    UpdateMachine& operator=(const UpdateMachine&) = delete;

    State Start();
    static const std::vector<const char*>& EventNames();
    std::optional<int> Apply(const std::string& event);
    void Load(const State& state);
    State Save() const;
    void CheckSilence();
    // In the server; an update of the other mode ends with its process.
    std::optional<State> Restart();
    // Passes in which nothing happens, with flash mode once more in each 100,000.
    void CheckLongRuns();

    // All fields, or the classes of the counters: at 0, below the limit, at it.
    static std::string Whole(const State& state);
    static std::string Folded(const State& state);

private:
    void LoadImage();
    int Step();
    int Wait();
    int Hear(const std::string& line);
    int WaitToTheLimit();
    int HearToTheLimit();
    void CheckGoodConversation();
    void Compare(const UpdateRules::Outcome& expected, const char* otherwise);

    const bool inServer;
    HexImage image;
    UpdateRules rules;
    std::string path;  // of the image as a file
    FakeLink link;
    TUpdater updater;
    std::set<std::string> tried;  // the new starts behind which a good conversation was held
};
