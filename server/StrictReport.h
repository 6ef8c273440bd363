#pragma once

#include <string>
#include <vector>

// Where --strict reports a failure: a sentence on standard error and in the log of the mode.
class StrictReport {
public:
    // `path` outlives this object.
    explicit StrictReport(const char* path) : log(path) {}

    void Add(const std::string& text) const;
    void Add(const std::vector<std::string>& texts) const;

    // With the system's reason for what has just failed.
    void AddReason(const std::string& subject) const;

private:
    const char* log;
};
