#include "Strict.h"

#include "FileTools.h"
#include "FlashVerifier.h"
#include "Reason.h"
#include "TDiagServer.h"
#include "TMidiCom.h"
#include "TUpdater.h"
#include "UnitPaths.h"
#include "WholeFile.h"

Strict::Strict(const Options& options) : report(options.HasFile() ? kUpdateLog : kServerLog) {}

// Checks the file first, since that needs nothing of the unit; -v needs no more.
bool Strict::Prepare(Options& options)
{
    // Nobody has described the flash of the other peer.
    const bool isCsp = options.connecttype == TMidiCom::kPiano;
    if (options.HasFile())
        firmware = CheckedFile(options.filename, isCsp ? Severity::Error : Severity::Warning);
    report.Add(firmware.warnings);
    report.Add(firmware.errors);
    if (!firmware.errors.empty() || options.versionOnly)
        return firmware.errors.empty();
    if (options.renameFile)
        options.renameFile = checks.RequireRename(options.filename, NewName(options));
    if (!checks.RequireLogAndLock(options))
        return false;
    // Only the run with the lock may cut the log.
    report.AllowCut();
    return checks.RequireUnit(options);
}

bool Strict::RequireSame(const Options& options, const THexFile* image)
{
    const bool isSame = image != nullptr && firmware.IsIn(*image);
    if (!isSame)
        report.Add(firmware.name + ": it has changed since it was checked");
    // Only a comparison with the flash needs the text again.
    if (!options.verify)
        firmware.DropText();
    return isSame;
}

void Strict::TakeRestart(int error)
{
    hasPower = error == 0;
    if (!hasPower)
        report.Add(ReasonFor(kPianoPowerDevice, error));
}

bool Strict::Finish(const Options& options, int result) const
{
    if (result != 0) {
        ReportFailedRun(options, result);
        return false;
    }
    if (options.renameFile && !options.versionOnly && !FileExists(NewName(options).c_str()))
        report.Add(firmware.name + ": keeps its name, since the rename has failed");
    const bool isVerified =
        !options.verify || FlashVerifier(report).Verify(options.connecttype, firmware);
    return isVerified && hasPower;
}

// The run doesn't record why a link has failed, so the attempt is made again to get errno.
void Strict::ReportFailedRun(const Options& options, int result) const
{
    if (result == kNoPatcher && checks.RequirePatcher(options.connecttype))
        report.Add("the MIDI Patcher could not be reached before, but can be now");
    else if (result == kNoPort && checks.RequirePort(options))
        report.Add("the port was in use before, but is free now");
    else if (result != kNoPatcher && result != kNoPort)
        report.Add("the update has failed");
}

std::string Strict::SaveReadBack(const std::string& path, const std::string& text)
{
    std::string problem = CheckedFile(path, text).ReadBackProblem();
    if (!problem.empty())
        return problem;
    WholeFile file(path);
    return file.Write(text) && file.Commit() ? "" : file.Problem();
}

TSString Strict::NewName(const Options& options) const
{
    return TUpdater::VersionedName(options.filename, firmware.report.version.c_str());
}
