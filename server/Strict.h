#pragma once

#include <string>

#include "CheckedFile.h"
#include "CommandLine.h"
#include "StartChecks.h"
#include "StrictCopy.h"
#include "StrictReport.h"
#include "UpdateGate.h"

class THexFile;

// What --strict adds to a run, for `main` and for the server. Each failure is a sentence on
// standard error and in the log of the mode.
class Strict {
public:
    explicit Strict(const Options& options);
    Strict(const Strict&) = delete;
    Strict& operator=(const Strict&) = delete;

    // Checks the firmware file, and unless only its version is to be printed, what the run needs.
    // Clears `renameFile` if the rename after the update would fail. False when the run would fail.
    bool Prepare(Options& options);

    // The update has loaded the file. False when the image isn't the one that Prepare has checked.
    bool RequireSame(const Options& options, const THexFile* image);

    // The CSP was restarted: 0, or the errno of the power device.
    void TakeRestart(int error);

    // Takes what the run has returned, and compares the flash where that is requested. True when
    // all has gone well.
    bool Finish(const Options& options, int result) const;

    // Replaces the file by the text if that is a complete read-back. Returns an empty text, or the
    // reason of a failure, which the caller reports.
    static std::string SaveReadBack(const std::string& path, const std::string& text);

    StrictReport report;
    UpdateGate gate;  // of the server's updates
    StrictCopy copy;  // of the parameter file

private:
    void ReportFailedRun(const Options& options, int result) const;
    TSString NewName(const Options& options) const;

    StartChecks checks{report};
    CheckedFile firmware;  // of the command line
    bool hasPower = true;  // the latest restart has not failed
};
