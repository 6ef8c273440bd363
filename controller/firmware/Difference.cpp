#include "Difference.h"

#include <algorithm>

#include "Image.h"

std::vector<std::uint32_t> DifferingAddresses(std::string_view left, std::string_view right)
{
    std::vector<std::uint32_t> differing;
    const Image image(right);
    ForEachByte(left, [&](std::uint32_t address, unsigned char byte) {
        if (image.At(address) != byte)
            differing.push_back(address);
    });
    const Image own(left);
    ForEachByte(right, [&](std::uint32_t address, unsigned char) {
        if (own.At(address) == Image::kNoData)
            differing.push_back(address);
    });
    std::sort(differing.begin(), differing.end());
    return differing;
}
