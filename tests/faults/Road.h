#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Stage.h"

// One way through the program, from the start of the processes to their end. It holds what the
// program promises there, and names the class of the outcome.
struct Road {
    std::string name;
    std::function<std::string(Stage&)> run;
    // The piano's link is cut, and the piano ended, behind each of its frames, too.
    bool cutsLink = false;
};

const std::vector<Road>& Roads();

// The roads, by source.
std::string StartWithoutPiano(Stage& stage);
std::string StartUp(Stage& stage);
std::string ReadBack(Stage& stage);
std::string StandAloneUpdate(Stage& stage);
std::string ServerUpdate(Stage& stage);
std::string Bridge(Stage& stage);
std::string Search(Stage& stage);
std::string Backup(Stage& stage);
std::string Restore(Stage& stage);
std::string LargeRestore(Stage& stage);
