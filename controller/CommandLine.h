#pragma once

#include <string>
#include <vector>

#include "Command.h"

// Takes the command line apart and runs its command, or prints help, the version or what could
// complete a word.
Status RunCommandLine(std::vector<std::string> words);
