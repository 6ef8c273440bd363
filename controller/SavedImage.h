#pragma once

#include <string>
#include <string_view>

#include "ImageFile.h"
#include "Status.h"

// Replaces the file, and with a compressed image the .sum file next to it. Wherever that is broken
// off, a checksum that matched the old image matches the image that is there; any other is still
// the old one.
Outcome SaveImage(const std::string& target, ImageForm form, std::string_view bytes);
