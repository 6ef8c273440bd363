#pragma once

#include <string>
#include <vector>

#include "Disk.h"
#include "FaultyUnit.h"

// A strict run that replaces a file, in which one call fails, the medium is pulled out before a
// call, or the power is cut before a call.
//
// The promise: the target is the older file or the new one, whole, whatever a file system may have
// lost after a cut. It is the new one once the controller has been sent the success, and a failure
// is reported.
class StrictRun {
public:
    struct Scenario {
        std::string name;
        std::string group;   // of the controller; without one it is the read-back at the start
        std::string target;  // a path of the unit
        bool isReplaced;     // an older file is there
    };
    static const std::vector<Scenario> kScenarios;

    // Runs it without a fault, which must succeed.
    explicit StrictRun(const Scenario& itsScenario);

    // The calls since the controller has connected, which is right before a copy.
    const std::vector<CallLine>& Calls() const { return calls; }
    // The faults "rename:1:crash" that cut it off after each call that changes a file; of a run of
    // writes to one file, only those around its first and its last. An empty one is the end.
    std::vector<std::string> Cuts() const;

    // Runs it with a fault; throws when a promise is broken.
    Outcome Try(const std::string& fault) const;

private:
    class Run;

    void CheckFiles(const Files& files, const Run& run) const;

    const Scenario& scenario;
    std::vector<CallLine> calls;
    std::string newFile;
    std::string newSum;
};
