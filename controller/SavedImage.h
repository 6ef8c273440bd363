#pragma once

#include <string>
#include <string_view>

#include "ImageFile.h"
#include "Status.h"

// Replaces the file, and with a compressed image the .sum file next to it. Wherever that is broken
// off, the checksum matches the image that is there.
Outcome SaveImage(const std::string& target, ImageForm form, std::string_view bytes);
