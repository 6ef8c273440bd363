// Strict runs that replace a file, in which one call fails, the medium is pulled out before a call,
// or the power is cut before a call.
//
// The promise: the target is the older file or the new one, whole, whatever a file system may have
// lost after a cut. It is the new one once the controller has been sent the success, and a failure
// is reported.

#include "Disk.h"
#include "FaultyUnit.h"
#include "HexText.h"
#include "SumFile.h"

namespace {

constexpr char kCopy[] = "/medium/csp_param.rlg";
constexpr char kCopySum[] = "/medium/csp_param.sum";
constexpr char kReadBack[] = "/cwd/csp_param.hex";

struct Replacement {
    std::string name;
    std::string group;    // of the controller; without one it is the read-back at the start
    std::string target;   // a path of the unit
    std::string newFile;  // its content after a success

    bool IsBackup() const { return target == kCopy; }
};

const std::string kData = std::string(0x60000, 'n');  // of a complete read-back
const Replacement kReplacements[] = {
    {"strict read-back", "", kReadBack, HexText(kData, 12, "\r\n")},
    {"strict restore", kRestore, kParameterFile, HexText(kData, 32, "\r\n")},
    {"strict backup", kBackup, kCopy, PackedText(kData)},
};

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

void WriteFiles(const Unit& unit, const Replacement& replacement, bool isThere)
{
    unit.Mount("usb");
    if (replacement.IsBackup())
        unit.Write(kParameterFile, HexText(kData, 32, "\r\n"));
    else
        unit.Write(kCopy, PackedText(kData));
    if (!isThere)
        return;
    unit.Write(replacement.target, "an older file");
    if (replacement.IsBackup())
        unit.Write(kCopySum, "2568205416 13 csp_param.rlg\n");  // as cksum prints it
}

// The texts by which the controller learns of a failure.
bool IsFailure(const std::string& shown)
{
    return Contains(shown, " error.\n") || Contains(shown, " is not exists.\n") ||
           Contains(shown, " not inserted.\n") || Contains(shown, "CSP Read Failed.\n");
}

void CheckFiles(const Files& files, const Replacement& replacement, const std::string& older,
                bool hasSucceeded)
{
    const std::string file = Content(files, replacement.target);
    const bool isNew = file == replacement.newFile;
    // A new name on the medium has no length before it is flushed.
    const bool isUnborn = replacement.IsBackup() && !hasSucceeded;
    Check(isNew || file == older || (isUnborn && older == "none" && file.empty()),
          "neither the older file nor the new one, but " + std::to_string(file.size()) + " bytes");
    Check(isNew || !hasSucceeded, "a success that was reported is lost");
    const std::string sum = Content(files, kCopySum);
    Check(!replacement.IsBackup() || file == "none" || file.empty() || sum == "none" ||
              (isUnborn && sum.empty()) || SumMatches(sum, file),
          "the checksum is that of another file");
}

// What the disk has after the calls before the fault.
Disk DiskAt(const std::string& fault, const Files& before, const std::vector<CallLine>& calls)
{
    Disk disk(before);
    const std::string what = fault.substr(fault.rfind(':') + 1);
    for (const CallLine& call : calls) {
        if (call.Fault(what) == fault)
            break;
        disk.Take(call);
    }
    return disk;
}

void Replace(FaultyUnit& unit, const Replacement& replacement, bool isThere)
{
    WriteFiles(unit, replacement, isThere);
    const Files before = FilesOf(unit);
    const std::string older = Content(before, replacement.target);
    const std::string flash = unit.Write("sim/flash", kData) + "@90040000";
    const bool isReadBack = replacement.group.empty();
    unit.StartWithPiano(StrictWords(), isReadBack
                                           ? Words{"--join", "--load", flash}
                                           : Words{"--join", "--bad-checksum-at", "90040000"});
    if (!isReadBack)
        unit.AwaitFirstReadBack();
    const std::string shown = unit.Try(replacement.group, std::chrono::seconds(60)).shown;
    unit.server->Kill(SIGTERM);
    const bool hasSucceeded =
        Contains(shown, "Copy Success.\n") || Contains(shown, "CSP Read Success.\n");

    const Files after = FilesOf(unit);
    const bool hasCrashed = Contains(unit.Fault(), ":crash");
    // A pulled medium has what it would have after a power cut.
    if (unit.Fault().empty() || hasCrashed ||
        (Contains(unit.Fault(), ":pull") && replacement.IsBackup()))
        for (const Files& files :
             DiskAt(unit.Fault(), before, unit.Calls("accept ")).Outcomes(after))
            CheckFiles(files, replacement, older, hasSucceeded);
    if (hasCrashed)
        return;
    CheckFiles(after, replacement, older, hasSucceeded);
    // A server that has ended reports on standard error.
    if (!hasSucceeded && (IsFailure(shown) || !unit.server->Error().empty()))
        unit.NoteReportedFailure();
    else
        unit.Expect(hasSucceeded, "a failure is reported",
                    {kController, kMidiLink, kRcLink, kLogs, "select"});
}

}  // namespace

std::vector<Scenario> StrictScenarios()
{
    std::vector<Scenario> scenarios;
    for (const Replacement& each : kReplacements)
        for (const bool isThere : {false, true}) {
            const std::string name = each.name + (isThere ? " over an older file" : "");
            const auto run = [&each, isThere](FaultyUnit& unit) { Replace(unit, each, isThere); };
            const Points points =
                each.group.empty() ? Points::LastCalls : Points::LastCallsAndPulls;
            scenarios.push_back({name, 0, kNoServer, run, points});
            scenarios.push_back({name + ", power cut", 0, kNoServer, run, Points::Cuts});
        }
    return scenarios;
}
