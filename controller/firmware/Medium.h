#pragma once

#include <string>

#include "ImageFile.h"

// A firmware file as the unit looks for it on a medium.
struct MediumFile {
    // The unit takes the first of these that it finds.
    static constexpr char kPlainName[] = "csp_prog.hex";
    static constexpr char kCompressedName[] = "csp_prog.rlg";

    ImageForm form = ImageForm::Hex;
    std::string bytes;

    const char* Name() const { return form == ImageForm::Rlg ? kCompressedName : kPlainName; }
};

// Of an image without errors: compressed where that is possible, since only that form has a
// checksum of all its bytes. An image with gaps stays as it is.
MediumFile MakeMediumFile(const ImageFile& image);
