#pragma once

#include <string>

#include "ImageFile.h"

// An image in another form.
struct Conversion {
    std::string bytes;
    std::string version;  // as the unit reads it from them
    std::string error;    // why there are none; empty after a success
};

// Makes the form of an image without errors, by the unit's own code, reads that again and compares.
// A .bin or .rlg file has the upper half of one start address and then only data, so not every
// image can have these forms.
Conversion Convert(const ImageFile& input, ImageForm form);
