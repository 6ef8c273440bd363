#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CheckedFile.h"
#include "CommandLine.h"
#include "Image.h"
#include "TSString.h"
#include "UniqueFd.h"

// What --strict adds to a run: checks before the first link is opened, where the server has loaded
// or saved a file, and at the end. Each failure is a sentence on standard error and in the log of
// the mode.
class Strict {
public:
    // Checks the firmware file, and unless only its version is to be printed, that no other strict
    // run is under way and that nothing is missing. The lock is kept for the life of this object.
    // Clears `renameFile` if the rename after the update would fail. False when the run would fail.
    bool Prepare(Options& options);

    // Takes what the run has returned, and compares the flash where that is requested. True when
    // all has gone well.
    bool Finish(const Options& options, int result) const;

    // For the server.

    // A read-back to `path` begins. The file for it to save to, which stays valid until the next.
    const char* BeginReadBack(const std::string& path);

    // It has succeeded: puts its file in the place of the old one, if it is complete and is the
    // text that was received.
    void EndReadBack(const std::string& text);

    // A search has loaded the file for the next update.
    void TakeLoadedFile(const char* path) { damages = CheckedFile(path).errors; }

    // False, with a report, when an update isn't to start because of what is wrong with that file.
    bool AllowsUpdate() const { return ReportAll(damages); }

private:
    // The path that a finished update renames the file to.
    TSString NewName(const Options& options) const;
    void CheckRename(Options& options) const;
    std::string ReplaceReadBack(const std::string& text) const;
    bool CanWrite(const char* path) const;
    int OpenToWrite(const char* path) const;
    bool TakeLock();
    bool FindPatcher(int connecttype) const;
    bool FindPort(int port) const;
    bool Verify(int connecttype) const;
    bool Compare(const Image& file, const Image& flash) const;
    void ReportRest(std::uint32_t first, std::uint32_t last) const;

    // Each returns false, so that a check can return it; ReportAll returns true if there is nothing
    // to report.
    bool Report(const std::string& text) const;
    bool ReportReason(const std::string& subject) const;
    bool ReportAll(const std::vector<std::string>& texts) const;

    const char* log = nullptr;         // of the mode
    UniqueFd lock{-1};                 // keeps other strict runs out
    CheckedFile firmware;              // of the command line
    std::vector<std::string> damages;  // of the file for the server's next update
    std::string target;                // of the present read-back
    std::string received;              // what it saves to
    bool readBackIsSaved = true;       // false after one that isn't
};
