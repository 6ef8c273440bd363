#include "StrictRun.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include <unistd.h>

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

bool Changes(const std::string& call)
{
    static constexpr const char* kKinds[] = {"write ", "fwrite ", "open ", "rename ",   "unlink ",
                                             "fsync ", "syncfs ", "sync ", "ftruncate "};
    return !Contains(call, ".log") && !Contains(call, " tcp") && !Contains(call, "_sock") &&
           std::any_of(std::begin(kKinds), std::end(kKinds),
                       [&](const char* kind) { return call.rfind(kind, 0) == 0; });
}

// True for two calls of a kind on one subject.
bool IsSame(const std::string& call, const std::string& other)
{
    const auto name = [](const std::string& each) {
        return each.substr(0, each.find(' ')) + each.substr(each.rfind(' '));
    };
    return name(call) == name(other);
}

constexpr std::size_t kSize = 0x60000;  // bytes of a complete read-back
const std::string kOld = HexText(std::string(kSize, 'o'), 32, "\r\n");

// The compressed form of data in which runs are full but for the last.
std::string Packed(const std::string& data)
{
    constexpr std::size_t kLongest = 255;
    std::string packed = "\x04\x90";
    for (std::size_t at = 0; at < data.size(); at += kLongest) {
        packed += {'\xDD', data[at]};
        packed += static_cast<char>(std::min(kLongest, data.size() - at));
    }
    return packed;
}

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
    Run(const Scenario& scenario, const std::string& point) : FaultyUnit(point)
    {
        Set("SIMUNIT_CALLS=" + Path("sim/calls"));
        const std::string data(kSize, 'n');
        if (scenario.target == kCopy)
            Write(kParameterFile, HexText(data, 32, "\r\n"));
        else
            Write(kCopy, Packed(data));
        if (scenario.isReplaced)
            WriteOld(scenario.target);
        Mount("usb");
        before = FilesOf(*this);
        const std::string flash = Write("sim/flash", data) + "@90040000";
        Words options{"--join", "--load", flash};
        if (!scenario.group.empty())
            options = {"--join", "--bad-checksum-at", "90040000"};
        StartPiano(options);
        Process& program = Start("diag_server", {"--strict", "-P", OwnPort()});
        Controller client(Port());
        if (!scenario.group.empty())
            WaitUntil(
                [&] { return Contains(Log(), "Rebooting CSP") && Contains(Journal(), "0xc01"); });
        skipped = Calls().size();
        client.Send(Bytes(scenario.group));
        const auto end = UnitTime() + kTime;
        WaitUntil([&] { return !program.IsRunning() || UnitTime() >= end; }, 2 * kTime);
        shown = client.Received();
        program.Kill(SIGTERM);
        error = program.Error();
        Check(!Contains(error, "Sanitizer") && !Contains(error, "runtime error"), error);
        after = FilesOf(*this);
    }

    // Of the program since the command.
    Words Calls() const
    {
        std::istringstream lines(Read("sim/calls"));
        Words calls;
        for (std::string line; std::getline(lines, line);)
            calls.push_back(line);
        calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(skipped));
        return calls;
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
    // Those that were made before the fault.
    Words CallsBefore(const std::string& point) const
    {
        const std::size_t end = point.rfind(':');
        std::string hit = point.substr(0, end == std::string::npos ? 0 : end) + " ";
        std::replace(hit.begin(), hit.end(), ':', ' ');
        Words made = Calls();
        const auto isHit = [&](const std::string& call) { return call.rfind(hit, 0) == 0; };
        if (!point.empty())
            made.erase(std::find_if(made.begin(), made.end(), isHit), made.end());
        return made;
    }

    std::string shown;
    std::string error;
    Files before;
    Files after;

private:
    static constexpr std::chrono::seconds kTime{60};
    static constexpr const char* kFailures[] = {"Copy error.\n",
                                                "Binary file error.\n",
                                                "Parameter file is not exists.\n",
                                                "Free Disk space error.\n",
                                                "Floppy in not inserted.\n",
                                                "CSP Read Failed.\n"};

    // Differs for each process of the sweep, and is below those that the system chooses.
    static std::string OwnPort() { return std::to_string(10000 + getpid() % 20000); }

    void WriteOld(const std::string& target) const
    {
        Write(target, target == kCopy ? kOldCopy : kOld);
        if (target == kCopy)
            Write(kCopySum, kOldSum);
    }

    std::size_t skipped = 0;
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
            i > 0 && IsSame(calls[i - 1], calls[i]) && IsSame(calls[i], calls[i + 1]);
        std::istringstream next(calls[i + 1]);
        std::string kind;
        std::string number;
        next >> kind >> number;
        if (Changes(calls[i]) && !isInside)
            cuts.push_back(kind + ":" + number + ":crash");
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
        for (const std::string& call : run.CallsBefore(fault))
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
