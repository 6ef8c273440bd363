#pragma once

#include <string>

#include "Command.h"
#include "ImageFile.h"

// Reads and checks a file, with the .sum file next to a .rlg file. Standard input, "-", is Intel
// HEX. Usage when it can't be read or is none of the forms; what is wrong with its content is in
// the report.
Outcome LoadImage(const std::string& path, const Invocation& invocation, ImageFile& file);

// The same, and fails with the first error in the content.
Outcome LoadClean(const std::string& path, const Invocation& invocation, ImageFile& file);
