#pragma once

#include <string>

#include "Unit.h"

struct Road;

// One run of a road, with one thing that goes wrong or none.
struct Trial {
    const Road* road;
    std::string fault;  // of a call of the program, "write:3:EIO"
    Unit::Words piano;  // of the link or of the piano itself, as simpiano's options
};
