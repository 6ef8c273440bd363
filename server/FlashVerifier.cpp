#include "FlashVerifier.h"

#include <algorithm>

#include "FlashReader.h"
#include "HexFormat.h"
#include "Hexadecimal.h"
#include "Image.h"
#include "Reason.h"
#include "UnitPaths.h"

bool FlashVerifier::Verify(int connecttype, const CheckedFile& file) const
{
    const FlashReading flash = ReadFlash(connecttype);
    const bool isEqual = CompareText(file, flash.text);
    if (flash.restartError != 0)
        report.Add(ReasonFor(kPianoPowerDevice, flash.restartError));
    return isEqual && flash.restartError == 0;
}

bool FlashVerifier::CompareText(const CheckedFile& file, const std::string& flash) const
{
    if (!CheckedFile("flash", flash).ReadBackProblem().empty()) {
        report.Add("the flash is not readable");
        return false;
    }
    for (const AddressRange& range : file.report.ranges)
        ReportRest(range);
    return Compare(Image(file.text), Image(flash));
}

// Compares only the addresses at which the file has data.
bool FlashVerifier::Compare(const Image& file, const Image& flash) const
{
    std::uint32_t first = 0;
    int count = 0;
    for (std::uint32_t at = kParameterStart; at < kParameterEnd; ++at) {
        if (file.At(at) != Image::kNoData && file.At(at) != flash.At(at) && count++ == 0)
            first = at;
    }
    if (count > 0)
        report.Add("the flash differs from the file, bytes: " + std::to_string(count) +
                   ", first at " + EightDigits(first) + ": " +
                   TwoDigits(static_cast<unsigned char>(flash.At(first))) + " in the flash, " +
                   TwoDigits(static_cast<unsigned char>(file.At(first))) + " in the file");
    return count == 0;
}

// Reports the parts of the range that a read-back doesn't cover.
void FlashVerifier::ReportRest(const AddressRange& range) const
{
    const std::uint32_t last = range.start + range.size - 1;
    ReportSkipped(range.start, std::min(last, kParameterStart - 1));
    ReportSkipped(std::max(range.start, kParameterEnd), last);
}

void FlashVerifier::ReportSkipped(std::uint32_t first, std::uint32_t last) const
{
    if (first <= last)
        report.Add("not verified: " + EightDigits(first) + " to " + EightDigits(last));
}
