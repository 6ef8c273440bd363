#pragma once

#include <string>
#include <vector>

#include "Road.h"
#include "Trial.h"

// All that can go wrong on a road, one thing a trial.
struct Trials {
    std::vector<Trial> all;
    int calls = 0;       // of the road's program when nothing goes wrong
    int frames = 0;      // on the piano's link, both ways, where it is cut
    std::string spread;  // "write 400 of 67608": the kinds of which not each call is tried
};

// Runs the road without a fault and makes a trial of each call and each error that fits it, and of
// each frame. Of a kind with more than `most` calls so many are taken, evenly spread. Throws a
// Violation when the road doesn't hold without a fault.
Trials TrialsOf(const Road& road, int most);
