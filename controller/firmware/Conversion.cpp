#include "Conversion.h"

#include <utility>

#include "Difference.h"
#include "Hexadecimal.h"
#include "IntelBin.h"
#include "RunLength.h"

namespace {

constexpr std::uint32_t kPageSize = 0x10000;

// Why the image can't be in the form; empty when it can.
std::string Obstacle(const HexReport& report, ImageForm form)
{
    if (form == ImageForm::Hex)
        return {};
    if (report.ranges.size() > 1)
        return "there is a gap, which the target form cannot represent";
    if (const std::uint32_t start = report.ranges[0].start; start % kPageSize != 0)
        return "the data starts at " + EightDigits(start) +
               ", and the target form can only start at a multiple of 64 KiB";
    return {};
}

// The unit loads a file whose first record has an address of its own, which means nothing, but
// doesn't convert it.
std::string ToBinary(const std::string& hexText)
{
    if (hexText.rfind(kUpperAddressHead, 0) == 0)
        return BinaryFromHex(hexText).value_or("");
    std::string plain = hexText;
    plain.replace(0, kUpperAddressHead.size(), kUpperAddressHead);
    return BinaryFromHex(plain).value_or("");
}

std::string BytesOf(const ImageFile& input, ImageForm form)
{
    if (form == ImageForm::Hex)
        return input.hexText;
    std::string binary = ToBinary(input.hexText);
    return form == ImageForm::Rlg ? RunLengthCode(binary) : std::move(binary);
}

}  // namespace

Conversion Convert(const ImageFile& input, ImageForm form)
{
    Conversion result;
    result.error = Obstacle(input.report, form);
    if (!result.error.empty())
        return result;
    result.bytes = BytesOf(input, form);
    result.version = input.report.version;
    if (form == ImageForm::Hex)
        return result;
    // What is outside the flash has been judged in the input.
    const ImageFile output = ParseBinary(form, result.bytes, Severity::Warning);
    result.version = output.report.version;
    if (!Compare(output.hexText, input.hexText).differences.empty())
        result.error = "the converted image differs from the input";
    return result;
}
