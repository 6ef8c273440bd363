#pragma once

#include <string_view>

#include "HexCheck.h"

// What to do about a finding, for a technician who sees it for the first time; a sentence without
// its full stop.
std::string_view RemedyFor(const Finding& finding);
