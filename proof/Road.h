#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Unit.h"

// How a run of a road ended. Violations are empty when the road has kept its promise.
struct Outcome {
    std::string result;
    std::string violation;
};

// One way through the program in a unit of its own, from the start of the processes to their end.
struct Road {
    std::string name;
    // The words are further options of simpiano.
    std::function<Outcome(Unit&, const Unit::Words&)> run;
};

const std::vector<Road>& Roads();
