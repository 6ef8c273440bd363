#include "StrictRun.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "HexText.h"

namespace {

using Words = Unit::Words;

constexpr char kCopy[] = "/medium/csp_param.rlg";
constexpr char kCopySum[] = "/medium/csp_param.sum";
const std::string kOldCopy = "an older copy";
const std::string kOldSum = "4212511494 13 csp_param.rlg\n";  // as cksum prints it
constexpr char kReadBack[] = "/cwd/csp_param.hex";
constexpr char kBackup[] = "DF DF 00 C3";
constexpr char kRestore[] = "DF DF 00 C4";

Files FilesOf(const Unit& unit)
{
    Files files;
    for (const std::string directory : {"/cwd", "/usr/local/lib/diag", "/medium"})
        for (const auto& entry : std::filesystem::directory_iterator(unit.Path(directory)))
            files[directory + "/" + entry.path().filename().string()] = ReadFile(entry.path());
    return files;
}

std::string Content(const Files& files, const std::string& path)
{
    const auto found = files.find(path);
    return found == files.end() ? "none" : found->second;
}

// True for a call that may change a file of which something is promised.
bool Changes(const CallLine& call)
{
    static const std::set<std::string> kinds = {"write", "fwrite", "open", "rename",   "unlink",
                                                "fsync", "syncfs", "sync", "ftruncate"};
    const auto isOf = [&](const char* name) { return Contains(call.subject, name); };
    return kinds.count(call.kind) > 0 && !isOf(kLogs) && !isOf(kController) && !isOf("_sock");
}

constexpr std::size_t kSize = 0x60000;  // bytes of a complete read-back
const std::string kOld = HexText(std::string(kSize, 'o'), 32, "\r\n");

}  // namespace

const std::vector<StrictRun::Scenario> StrictRun::kScenarios = {
    {"strict read-back", "", kReadBack, false},
    {"strict read-back over an older file", "", kReadBack, true},
    {"strict restore", kRestore, kParameterFile, false},
    {"strict restore over an older file", kRestore, kParameterFile, true},
    {"strict backup", kBackup, kCopy, false},
    {"strict backup over an older file", kBackup, kCopy, true},
};

// One run in a unit of its own.
class StrictRun::Run : public FaultyUnit {
public:
    Run(const Scenario& flow, const std::string& point) : FaultyUnit(point)
    {
        Set("SIMUNIT_CALLS=" + Path("sim/calls"));
        WriteFiles(flow);
        before = FilesOf(*this);
        const std::string flash = Write("sim/flash", std::string(kSize, 'n')) + "@90040000";
        StartServing(flow.group.empty() ? Words{"--join", "--load", flash}
                                        : Words{"--join", "--bad-checksum-at", "90040000"},
                     {"--strict", "-P", OwnPort()});
        if (!flow.group.empty())
            AwaitFirstReadBack();
        shown = Ask(flow.group, std::chrono::seconds(60)).shown;
        error = KillServer();
        after = FilesOf(*this);
    }

    std::vector<CallLine> Calls() const
    {
        const std::string all = Read("sim/calls");
        return CallLines(all.substr(std::min(all.find("accept "), all.size())));
    }
    std::vector<CallLine> CallsBefore(const std::string& point) const
    {
        std::vector<CallLine> made = Calls();
        const std::string what = point.substr(point.rfind(':') + 1);
        const auto isHit = [&](const CallLine& call) { return call.Fault(what) == point; };
        made.erase(std::find_if(made.begin(), made.end(), isHit), made.end());
        return made;
    }

    bool HasSucceeded() const
    {
        return Contains(shown, "Copy Success.\n") || Contains(shown, "CSP Read Success.\n");
    }
    // To the controller, or by a server that has ended.
    bool HasReported() const
    {
        const auto isShown = [&](const char* text) { return Contains(shown, text); };
        return !error.empty() || std::any_of(std::begin(kFailures), std::end(kFailures), isShown);
    }

    std::string shown;
    std::string error;
    Files before;
    Files after;

private:
    static constexpr const char* kFailures[] = {"Copy error.\n",
                                                "Binary file error.\n",
                                                "Parameter file is not exists.\n",
                                                "Free Disk space error.\n",
                                                "Floppy in not inserted.\n",
                                                "CSP Read Failed.\n"};

    void WriteFiles(const Scenario& flow) const
    {
        const bool isBackup = flow.target == kCopy;
        const std::string data(kSize, 'n');
        Mount("usb");
        if (isBackup)
            Write(kParameterFile, HexText(data, 32, "\r\n"));
        else
            Write(kCopy, PackedText(data));
        if (flow.isReplaced)
            Write(flow.target, isBackup ? kOldCopy : kOld);
        if (flow.isReplaced && isBackup)
            Write(kCopySum, kOldSum);
    }
};

StrictRun::StrictRun(const Scenario& itsScenario) : scenario(itsScenario)
{
    const Run run(scenario, "");
    Check(run.HasSucceeded(), "it fails without a fault: " + run.shown);
    calls = run.Calls();
    newFile = Content(run.after, scenario.target);
    // It may have a line for the older file, too.
    newSum = Content(run.after, kCopySum);
    if (newSum.rfind(kOldSum, 0) == 0)
        newSum.erase(0, kOldSum.size());
    newSum.erase(newSum.find('\n') + 1);
    Check(newFile != Content(run.before, scenario.target), "it doesn't change the file");
}

std::vector<std::string> StrictRun::Cuts() const
{
    Words cuts;
    for (std::size_t i = 0; i + 1 < calls.size(); ++i) {
        const bool isInside =
            i > 0 && calls[i - 1].IsLike(calls[i]) && calls[i].IsLike(calls[i + 1]);
        if (Changes(calls[i]) && !isInside)
            cuts.push_back(calls[i + 1].Fault("crash"));
    }
    cuts.emplace_back();
    return cuts;
}

Outcome StrictRun::Try(const std::string& fault) const
{
    const Run run(scenario, fault);
    Check(fault.empty() || run.HasFault(), "the fault hasn't occurred");
    // A pulled medium has what it would have after a power cut.
    const bool isCut = fault.empty() || Contains(fault, ":crash") ||
                       (Contains(fault, ":pull") && scenario.target == kCopy);
    if (isCut) {
        Disk disk(run.before);
        for (const CallLine& call : run.CallsBefore(fault))
            disk.Take(call);
        for (const Files& files : disk.Outcomes(run.after))
            CheckFiles(files, run);
    }
    if (!Contains(fault, ":crash"))
        CheckFiles(run.after, run);
    if (run.HasSucceeded() || Contains(fault, ":crash"))
        return Outcome::Kept;
    if (run.HasReported())
        return Outcome::Reported;
    Check(run.IsHit({kController, kMidiLink, kRcLink, kLogs, "select"}),
          "a failure isn't reported");
    return Outcome::Lost;
}

void StrictRun::CheckFiles(const Files& files, const Run& run) const
{
    const bool isOnMedium = scenario.target == kCopy;
    const std::string file = Content(files, scenario.target);
    const bool isNew = file == newFile;
    const bool isOld = file == Content(run.before, scenario.target);
    // A new name on the medium has no length before it is flushed.
    const bool isUnborn = isOnMedium && !run.HasSucceeded();
    Check(isNew || isOld || (isUnborn && !scenario.isReplaced && file.empty()),
          "neither the older file nor the new one, but " + std::to_string(file.size()) + " bytes");
    Check(isNew || !run.HasSucceeded(), "a success that was reported is lost");
    const std::string sum = Content(files, kCopySum);
    const bool hasFile = isNew || (isOld && scenario.isReplaced);
    Check(!isOnMedium || !hasFile || sum == "none" || (isUnborn && sum.empty()) ||
              Contains(sum, isNew ? newSum : kOldSum),
          "the checksum is that of another file");
}
