#include "CheckedFile.h"

#include <cerrno>
#include <cstring>

#include "UniqueFd.h"

CheckedFile::CheckedFile(const std::string& path)
{
    errno = 0;
    const UniqueFd file(OpenToRead(path.c_str()));
    if (!file || !ReadWholeFile(file.Get(), bytes)) {
        error = path + ": " + Reason();
        return;
    }
    report = CheckHex(Text());
    // Among many warnings there may be no room for an error.
    const std::string count = std::to_string(report.errors) + " errors";
    if (report.errors > 0)
        error = path + ": " + count;
    for (const Finding& finding : report.findings) {
        if (finding.severity == Severity::Warning)
            continue;
        error = path + ":" + std::to_string(finding.line) + ": " + finding.text;
        if (report.errors > 1)
            error += " (the first of " + count + ")";
        return;
    }
}

std::string_view CheckedFile::Text() const
{
    return {reinterpret_cast<const char*>(bytes.data.get()), bytes.size};
}

std::string Reason()
{
    return errno == 0 ? "can't be used" : std::strerror(errno);
}
