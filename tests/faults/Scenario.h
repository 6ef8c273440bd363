#pragma once

#include <string>
#include <vector>

#include "FaultyUnit.h"

// One flow of the program from the start of its processes to their end. It checks what the program
// promises there, and returns the class of the outcome.
struct Scenario {
    std::string name;
    std::string (*run)(FaultyUnit&);
    // The frames after which the link is cut, and the piano ends, both ways: all, or so many of the
    // last.
    int frames = 0;
};
constexpr int kAllFrames = 1000000;

extern const std::vector<Scenario> kScenarios;
