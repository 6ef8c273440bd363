#include "Medium.h"

#include <utility>

#include "Conversion.h"

MediumFile MakeMediumFile(const ImageFile& image)
{
    Conversion compressed = Convert(image, ImageForm::Rlg);
    if (!compressed.error.empty())
        return {ImageForm::Hex, image.hexText};
    return {ImageForm::Rlg, std::move(compressed.bytes)};
}
