#pragma once

#include "CheckedFile.h"
#include "CommandLine.h"
#include "StrictReport.h"
#include "TSString.h"
#include "UniqueFd.h"

// What --strict requires before the first link is opened. Each function reports what is missing,
// and then returns false.
class StartChecks {
public:
    explicit StartChecks(const StrictReport& itsReport) : report(itsReport) {}

    // A log that can be written, and no other strict run, which the lock keeps out for the life of
    // this object.
    bool RequireLogAndLock(const Options& options);

    // The MIDI Patcher's socket, and for a server the port. To be called with the lock.
    bool RequireUnit(const Options& options) const;

    // Connects to the MIDI Patcher for a moment, or binds the port for one, without listening.
    bool RequirePatcher(int connecttype) const;
    bool RequirePort(const Options& options) const;

    // True when a finished update can rename the file. A file with the wrong name does less harm
    // than a flash that isn't updated, so the update runs all the same.
    bool RequireRename(const std::string& file, const TSString& newName) const;

private:
    bool RequireWritable(const char* path) const;
    UniqueFd RequireFile(const char* path) const;
    bool RequireLock();
    bool WriteOwnId() const;

    const StrictReport& report;
    UniqueFd lock{-1};  // the locked file; below 0 without the lock
};
