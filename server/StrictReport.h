#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Log.h"
#include "UnitPaths.h"

// Where --strict reports a failure: a sentence on standard error and in the log of the mode.
class StrictReport {
public:
    // `path` outlives this object.
    explicit StrictReport(const char* path) : log(path) {}

    // From now on a log without room for an entry is cut; before, the entry is only printed.
    void AllowCut() { atLimit = AtLimit::CutLog; }

    void Add(const std::string& text) const;
    void Add(const std::vector<std::string>& texts) const;

    // With the system's reason for what has just failed.
    void AddReason(const std::string& subject) const;

private:
    const char* log;
    AtLimit atLimit = AtLimit::LoseEntry;  // of kMostOfLog bytes
};
