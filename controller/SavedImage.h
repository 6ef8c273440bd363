#pragma once

#include <string>
#include <string_view>

#include "ImageFile.h"
#include "Status.h"

// Replaces the file, and with a compressed image the .sum file next to it, once both are complete.
// If only one of the two takes its place, the unit refuses the pair.
Outcome SaveImage(const std::string& target, ImageForm form, std::string_view bytes);
