#pragma once

#include <string>

#include "CommandLine.h"

// What --strict adds to a run: checks before the first link is opened, and after the work is done.
// Each failure is a sentence on standard error and in the log of the mode.
class Strict {
public:
    explicit Strict(const Options& options) : asked(options) {}

    // False when the run would fail.
    bool Prepare() const;

private:
    bool CheckFirmware() const;
    void Report(const std::string& text) const;

    Options asked;
};
