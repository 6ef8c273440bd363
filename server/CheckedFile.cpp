#include "CheckedFile.h"

#include "Reason.h"

constexpr std::size_t kMostErrors = 20;

CheckedFile::CheckedFile(const std::string& path)
{
    if (!ReadWholeFile(path.c_str(), bytes)) {
        errors = {ReasonFor(path)};
        return;
    }
    report = CheckHex(Text());
    for (const Finding& finding : report.findings) {
        if (finding.severity == Severity::Warning || errors.size() == kMostErrors)
            continue;
        const std::string line = finding.line > 0 ? ":" + std::to_string(finding.line) : "";
        errors.push_back(path + line + ": " + finding.text);
    }
    const std::size_t left = report.errors - errors.size();
    if (left > 0)
        errors.push_back(path + ": errors not listed: " + std::to_string(left));
}

std::string_view CheckedFile::Text() const
{
    return {reinterpret_cast<const char*>(bytes.data.get()), bytes.size};
}
