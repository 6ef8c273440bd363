#include "Remedy.h"

#include <algorithm>
#include <iterator>

namespace {

// By what the finding's text contains.
struct Remedy {
    std::string_view part;
    std::string_view next;
};

constexpr Remedy kOfErrors[] = {
    {"outside the flash",
     "don't use the file for this board; ask its author for the one of this piano"},
    {"a line of ", "have the file made again with at most 32 bytes of data in a record"},
    {"which the unit does not know", "have the file made again as data for a flash"},
    {"means nothing to a flash", "have the file made again as data for a flash"},
    {"go backwards", "have the file made again with rising addresses"},
    {"reaches the last address", "have the file made again for the addresses of the flash"},
    {"larger than the flash", "don't use the file for this board; ask its author"},
    {".sum file", "copy both files again from where the complete ones are"},
};
constexpr std::string_view kOfOtherErrors =
    "copy the file again from its source; if that has the same damage, ask its author for a good "
    "one";

constexpr Remedy kOfWarnings[] = {
    {"no version text", "make sure that this is a firmware file and the one that you want"},
    {"outside the flash", "make sure that the file is for the board that you update"},
    {"a gap of", "nothing if the firmware is meant to have the gap; otherwise copy the file again"},
    {"means nothing to a flash", "nothing if the file has come from its author in this form"},
};
constexpr std::string_view kOfOtherWarnings = "nothing; the unit writes the file";

template <std::size_t Size>
std::string_view Find(const Remedy (&remedies)[Size], std::string_view text, std::string_view other)
{
    const auto* const found =
        std::find_if(std::begin(remedies), std::end(remedies), [&](const Remedy& remedy) {
            return text.find(remedy.part) != std::string_view::npos;
        });
    return found == std::end(remedies) ? other : found->next;
}

}  // namespace

std::string_view RemedyFor(const Finding& finding)
{
    return finding.severity == Severity::Error ? Find(kOfErrors, finding.text, kOfOtherErrors)
                                               : Find(kOfWarnings, finding.text, kOfOtherWarnings);
}
