#pragma once

#include <string>
#include <vector>

#include "CommandLine.h"
#include "UniqueFd.h"

// What --strict adds to a run: checks before the first link is opened, and at the loop's border
// where a file comes in or has been saved. Each failure is a sentence on standard error and in the
// log of the mode.
class Strict {
public:
    // Checks the firmware file, and unless only its version is to be printed, that no other strict
    // run is under way and that nothing is missing. The lock is kept for the life of this object. A
    // file that can't be renamed after the update isn't to be: `options` changes. False when the
    // run would fail.
    bool Prepare(Options& options);

    // Takes what the run has returned. True when all has gone well.
    bool Finish(int result) const;

    // For the server.

    // A read-back to `target` begins. The file for it to save to, which stays valid until the next.
    const char* BeginReadBack(const std::string& target);

    // It has succeeded: puts its file in the place of the old one, if it is complete.
    void EndReadBack();

    // A search has loaded the file for the next update.
    void TakeLoadedFile(const char* path);

    // False, with a report, when an update isn't to start because of what is wrong with that file.
    bool AllowsUpdate() const;

private:
    bool CheckFirmware(Options& options) const;
    bool TakeLock();
    bool FindPatcher() const;
    bool FindPort(int port) const;
    void CheckRename(Options& options, const std::string& version) const;
    bool Report(const std::string& text) const;
    bool ReportReason(const std::string& subject) const;

    const char* log = nullptr;         // of the mode
    UniqueFd lock{-1};                 // keeps other strict runs out
    std::string target;                // of the present read-back
    std::string received;              // what it saves to
    bool readBackIsSaved = true;       // false after one that isn't
    std::vector<std::string> damages;  // of the file for the next update, a sentence each
};
