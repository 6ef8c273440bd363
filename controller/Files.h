#pragma once

#include <string>

#include "Status.h"

// Reads a file to its end, standard input for "-". Usage with the reason when it can't.
Outcome ReadInput(const std::string& path, std::string& bytes);

// Appends what an open file has, up to a limit far above any image. False when a read fails.
bool ReadAll(int descriptor, std::string& bytes);
