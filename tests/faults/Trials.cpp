#include "Trials.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "Stage.h"

namespace {

using Words = std::vector<std::string>;

// A call is known by its number among its kind, less one.
using CallsByKind = std::map<std::string, Words>;

constexpr char kShort[] = "short";
constexpr const char* kLinkEnds[] = {"--cut-link-after", "--die-after"};
constexpr const char* kLinkEndsSent[] = {"--cut-after-sent", "--die-after-sent"};

bool IsSocket(const std::string& subject)
{
    return Holds(subject, kMidiLink) || Holds(subject, kRcLink) || subject == kController;
}

// The errors that fit a call on its subject, as the simulated unit names them.
const Words& ErrorsOf(const std::string& kind, const std::string& subject)
{
    static const Words socketRead = {"ECONNRESET", "EIO", "EINTR", kShort};
    static const Words socketWrite = {"EPIPE", "ECONNRESET", "EINTR", kShort};
    static const Words fileRead = {"EIO", "EINTR", kShort};
    static const Words fileWrite = {"ENOSPC", "EIO", "EINTR", kShort};
    static const std::map<std::string, Words> others = {
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
    if (kind == "read" || kind == "fread")
        return IsSocket(subject) ? socketRead : fileRead;
    if (kind == "write" || kind == "fwrite")
        return IsSocket(subject) ? socketWrite : fileWrite;
    return others.at(kind);
}

CallsByKind CallsOf(const std::string& list)
{
    CallsByKind calls;
    std::istringstream lines(list);
    std::string kind;
    std::string number;
    for (std::string subject; lines >> kind >> number >> subject;)
        calls[kind].push_back(subject);
    return calls;
}

// Up to `most` of 1 to `count`, evenly spread.
std::vector<int> Spread(int count, int most)
{
    const int places = std::min(count, most);
    std::vector<int> spread;
    spread.reserve(static_cast<std::size_t>(places));
    for (int i = 0; i < places; ++i)
        spread.push_back(1 + static_cast<int>(static_cast<long>(i) * count / places));
    return spread;
}

class Maker {
public:
    Maker(const Road& itsRoad, int itsMost) : road(itsRoad), most(itsMost) {}

    void AddCalls(const CallsByKind& calls)
    {
        for (const auto& [kind, subjects] : calls) {
            const int count = static_cast<int>(subjects.size());
            trials.calls += count;
            for (const int place : Places(kind, count))
                AddErrors(kind, place, subjects[static_cast<std::size_t>(place - 1)]);
        }
    }

    // The road's own piano is the first that ends, and tells its frames then.
    void AddFrames(const std::string& passed)
    {
        constexpr char kFrames[] = " frames ";
        const std::size_t at = passed.find(kFrames);
        Hold(at != std::string::npos, "the piano hasn't told its frames");
        std::istringstream words(passed.substr(at + sizeof(kFrames) - 1));
        int came = 0;
        int went = 0;
        std::string word;
        words >> came >> word >> went;
        AddEnds("frames to the piano", came, kLinkEnds);
        AddEnds("frames from it", went, kLinkEndsSent);
    }

    const Trials& Made() const { return trials; }

private:
    void AddErrors(const std::string& kind, int place, const std::string& subject)
    {
        const std::string call = kind + ":" + std::to_string(place) + ":";
        for (const std::string& error : ErrorsOf(kind, subject))
            trials.all.push_back({&road, call + error, {}});
    }

    void AddEnds(const char* name, int count, const char* const (&ends)[2])
    {
        trials.frames += count;
        for (const int place : Places(name, count))
            for (const char* end : ends)
                trials.all.push_back({&road, "", {end, std::to_string(place)}});
    }

    std::vector<int> Places(const std::string& name, int count)
    {
        if (count > most)
            trials.spread += (trials.spread.empty() ? "" : ", ") + name + " " +
                             std::to_string(most) + " of " + std::to_string(count);
        return Spread(count, most);
    }

    const Road& road;
    const int most;
    Trials trials;
};

}  // namespace

Trials TrialsOf(const Road& road, int most)
{
    const Trial none{&road, "", {}};
    Stage stage(none);
    stage.unit.Set("SIMUNIT_CALLS=" + stage.unit.Path("sim/calls"));
    road.run(stage);

    Maker maker(road, most);
    maker.AddCalls(CallsOf(stage.unit.Read("sim/calls")));
    if (road.cutsLink)
        maker.AddFrames(stage.unit.MidiLog());
    return maker.Made();
}
