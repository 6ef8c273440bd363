#include "Strict.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "FileBytes.h"
#include "HexCheck.h"
#include "Log.h"
#include "UniqueFd.h"

namespace {

// Of the errors in a file, one may bring a thousand others.
constexpr std::size_t kMostReported = 5;

// The system's reason for what has just failed.
std::string Reason()
{
    return errno == 0 ? "not a regular file" : std::strerror(errno);
}

struct CheckedFile {
    std::string_view Text() const
    {
        return {reinterpret_cast<const char*>(bytes.data.get()), bytes.size};
    }

    FileBytes bytes;
    HexReport report;
    std::vector<std::string> errors;  // a sentence each; empty for a good file
};

void TakeErrors(const std::string& path, CheckedFile& file)
{
    for (const Finding& finding : file.report.findings) {
        if (finding.severity == Severity::Error && file.errors.size() < kMostReported)
            file.errors.push_back(path + ":" + std::to_string(finding.line) + ": " + finding.text);
    }
    if (const std::size_t rest = file.report.errors - file.errors.size(); rest > 0)
        file.errors.push_back(path + ": " + std::to_string(rest) + " more errors");
}

CheckedFile CheckFile(const std::string& path)
{
    CheckedFile file;
    errno = 0;
    const UniqueFd opened(OpenToRead(path.c_str()));
    if (!opened || !ReadWholeFile(opened.Get(), file.bytes)) {
        file.errors.push_back(path + ": " + Reason());
        return file;
    }
    file.report = CheckHex(file.Text());
    TakeErrors(path, file);
    return file;
}

}  // namespace

bool Strict::Prepare() const
{
    return !asked.HasFile() || CheckFirmware();
}

bool Strict::CheckFirmware() const
{
    const CheckedFile file = CheckFile(asked.filename);
    for (const std::string& error : file.errors)
        Report(error);
    return file.errors.empty();
}

void Strict::Report(const std::string& text) const
{
    std::fprintf(stderr, "diag_server: %s\n", text.c_str());
    AddLogFile(asked.HasFile() ? kUpdateLog : kServerLog, (text + "\n").c_str());
}
