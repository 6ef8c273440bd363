#include "CheckedFile.h"

#include <cerrno>
#include <utility>

#include "FileBytes.h"
#include "HexFormat.h"
#include "Reason.h"
#include "THexFile.h"

namespace {

constexpr std::size_t kMostErrors = 20;

std::string Sentence(const std::string& name, const Finding& finding)
{
    const std::string line = finding.line > 0 ? ":" + std::to_string(finding.line) : "";
    return name + line + ": " + finding.text;
}

}  // namespace

CheckedFile::CheckedFile(const std::string& path, Severity outsideFlash)
{
    FileBytes bytes;
    if (ReadWholeFile(path.c_str(), bytes, kLargest)) {
        *this = CheckedFile(path, std::string(bytes.Text()), outsideFlash);
        return;
    }
    isMissing = errno == ENOENT || errno == EACCES;
    name = path;
    errors = {ReasonFor(path)};
}

CheckedFile::CheckedFile(const std::string& itsName, std::string itsText, Severity outsideFlash)
    : name(itsName), text(std::move(itsText)), isRead(true), report(CheckHex(text, outsideFlash))
{
    for (const Finding& finding : report.findings) {
        if (finding.severity == Severity::Error && errors.size() < kMostErrors)
            errors.push_back(Sentence(name, finding));
        else if (finding.severity == Severity::Warning && finding.isOutsideFlash)
            warnings.push_back(Sentence(name, finding));
    }
    const std::size_t left = report.errors - errors.size();
    if (left > 0)
        errors.push_back(name + ": errors not listed: " + std::to_string(left));
}

std::string CheckedFile::ReadBackProblem() const
{
    if (!errors.empty())
        return errors.front();
    const auto& ranges = report.ranges;
    const bool isComplete = ranges.size() == 1 && ranges[0].start == kParameterStart &&
                            ranges[0].size == kParameterSize;
    return isComplete ? "" : name + ": it doesn't cover exactly the parameter flash";
}

bool CheckedFile::IsIn(const THexFile& image) const
{
    std::string_view rest = text;
    std::int32_t row = 0;
    for (std::size_t end = 0; (end = rest.find(kLf)) != std::string_view::npos; ++row) {
        if (row == image.lineCount || FirstLine(rest) != image.lines[row])
            return false;
        rest.remove_prefix(end + 1);
    }
    return row == image.lineCount;
}
