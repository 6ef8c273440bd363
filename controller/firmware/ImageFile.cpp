#include "ImageFile.h"

#include <algorithm>
#include <utility>

#include "Compress.h"
#include "HexFormat.h"
#include "IntelBin.h"
#include "Printable.h"
#include "RunLength.h"
#include "SumFile.h"

namespace {

constexpr struct {
    ImageForm form;
    std::string_view extension;
} kForms[] = {
    {ImageForm::Hex, ".hex"},
    {ImageForm::Bin, ".bin"},
    {ImageForm::Rlg, ".rlg"},
};

constexpr std::size_t kExtensionSize = 4;

char Lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsEqual(std::string_view name, std::string_view lower)
{
    return std::equal(name.begin(), name.end(), lower.begin(), lower.end(),
                      [](char left, char right) { return Lower(left) == right; });
}

std::string_view ExtensionOf(std::string_view name)
{
    const bool isBare = name.size() <= kExtensionSize;  // a hidden file, or none
    return isBare ? std::string_view() : name.substr(name.size() - kExtensionSize);
}

// The size of the decoded bytes; nothing when its last run item is cut off.
std::optional<std::size_t> ExpandedSize(std::string_view coded)
{
    std::size_t size = 0;
    while (!coded.empty()) {
        const bool isRun = static_cast<unsigned char>(coded[0]) == escape;
        const std::size_t item = isRun ? kRunItemSize : 1;
        if (coded.size() < item)
            return std::nullopt;
        size += isRun ? static_cast<unsigned char>(coded[2]) : 1;
        coded.remove_prefix(item);
    }
    return size;
}

// What is wrong with a .bin or .rlg file before it is looked into; empty for a good one.
std::string FormError(ImageForm form, std::string_view bytes)
{
    const auto size = form == ImageForm::Rlg ? ExpandedSize(bytes) : bytes.size();
    if (!size)
        return "the last run is cut off";
    if (*size < kBinaryHeadSize)
        return "fewer than 2 bytes, so there is no start address";
    if (*size > kBinaryHeadSize + kFlashSize)
        return "the image is larger than the flash: " + Counted(*size - kBinaryHeadSize, "byte");
    return {};
}

void AddError(HexReport& report, std::string text)
{
    Finding finding;
    finding.text = std::move(text);
    report.findings.insert(report.findings.begin(), std::move(finding));
    ++report.errors;
}

void CheckSum(std::string_view sumText, std::string_view bytes, ImageFile& file)
{
    file.sum = SumMatches(sumText, bytes) ? Sum::Matches : Sum::Differs;
    if (file.sum == Sum::Differs)
        AddError(file.report, "the checksum in the .sum file doesn't match: the file is damaged or "
                              "cut off, or the .sum file belongs to another one");
}

}  // namespace

std::optional<ImageForm> FormOf(std::string_view name)
{
    for (const auto& each : kForms) {
        if (IsEqual(ExtensionOf(name), each.extension))
            return each.form;
    }
    return std::nullopt;
}

std::string WithExtension(std::string_view name, std::string_view extension)
{
    return std::string(name.substr(0, name.size() - ExtensionOf(name).size())).append(extension);
}

ImageFile ParseImage(ImageForm form, std::string bytes, const std::optional<std::string>& sumText,
                     Severity outsideFlash)
{
    ImageFile file;
    if (form == ImageForm::Hex) {
        file.hexText = std::move(bytes);
        file.report = CheckHex(file.hexText, outsideFlash);
        return file;
    }
    file = ParseBinary(form, bytes, outsideFlash);
    // A power cut may leave a checksum empty, which the unit takes for none, too.
    if (sumText && !sumText->empty())
        CheckSum(*sumText, bytes, file);
    return file;
}

ImageFile ParseBinary(ImageForm form, std::string_view bytes, Severity outsideFlash)
{
    ImageFile file;
    file.form = form;
    if (std::string wrong = FormError(form, bytes); !wrong.empty()) {
        AddError(file.report, std::move(wrong));
        return file;
    }
    const bool isRlg = form == ImageForm::Rlg;
    file.hexText = (isRlg ? ExpandImage(bytes) : HexFromBinary(bytes)).value_or("");
    file.report = CheckHex(file.hexText, outsideFlash);
    for (Finding& finding : file.report.findings)
        finding.line = 0;
    return file;
}

const char* NameOf(Severity severity)
{
    return severity == Severity::Error ? "error" : "warning";
}

std::string Describe(std::string_view name, const Finding& finding)
{
    const std::string line = finding.line > 0 ? ":" + std::to_string(finding.line) : std::string();
    return std::string(name) + line + ": " + NameOf(finding.severity) + ": " + finding.text;
}

std::string DescribeErrors(std::string_view name, const HexReport& report)
{
    if (report.errors == 0)
        return {};
    const auto& findings = report.findings;
    const auto first = std::find_if(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.severity == Severity::Error;
    });
    std::string text = first == findings.end() ? std::string(name) : Describe(name, *first);
    if (report.errors > 1)
        text += "; check shows all " + Counted(report.errors, "error");
    return text;
}
