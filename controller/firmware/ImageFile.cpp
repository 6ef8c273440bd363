#include "ImageFile.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>

#include "Compress.h"
#include "FileBytes.h"
#include "IntelBin.h"
#include "RunLength.h"
#include "UniqueFd.h"

namespace {

bool ReadBytes(const std::string& path, std::string& bytes)
{
    const UniqueFd file(open(path.c_str(), O_RDONLY | kOpenFlags));
    FileBytes whole;
    if (!file || !ReadWholeFile(file.Get(), whole))
        return false;
    bytes.assign(reinterpret_cast<const char*>(whole.data.get()), whole.size);
    return true;
}

std::string ReasonOf(const std::string& path)
{
    return path + ": " + (errno == 0 ? "can't be read" : std::strerror(errno));
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

// What is wrong with the form of a .bin or .rlg file; empty for a good one.
std::string FormError(ImageForm form, std::string_view bytes)
{
    const auto size = form == ImageForm::Rlg ? ExpandedSize(bytes) : bytes.size();
    if (!size)
        return "the last run is cut off";
    if (*size < kBinaryHeadSize)
        return "fewer than 2 bytes, so there is no start address";
    return {};
}

// Returns why the file can't be expanded, or nothing.
std::string Expand(const std::string& path, ImageForm form, std::string& hexText)
{
    std::error_code problem;
    const std::filesystem::path place = std::filesystem::temp_directory_path(problem);
    if (problem)
        return "no directory for temporary files: " + problem.message();
    const ScratchDirectory scratch(place);
    if (!scratch)
        return ReasonOf(place);
    const std::string hexPath = scratch.Path("image.hex");
    const bool isDone = (form == ImageForm::Rlg ? Decompress(path.c_str(), hexPath.c_str())
                                                : Bin2Intel(path.c_str(), hexPath.c_str())) &&
                        ReadBytes(hexPath, hexText);
    return isDone ? "" : ReasonOf(path + ": can't be expanded in " + place.string());
}

}  // namespace

std::optional<ImageForm> FormOf(const std::string& path)
{
    std::string extension = std::filesystem::path(path).extension();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".hex")
        return ImageForm::Hex;
    if (extension == ".bin")
        return ImageForm::Bin;
    if (extension == ".rlg")
        return ImageForm::Rlg;
    return std::nullopt;
}

ScratchDirectory::ScratchDirectory(const std::string& parent)
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int each : {SIGHUP, SIGINT, SIGTERM})
        sigaddset(&ending, each);
    sigprocmask(SIG_BLOCK, &ending, &signals);
    std::string pattern = parent + "/.diagctl-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr)
        path = pattern;
}

ScratchDirectory::~ScratchDirectory()
{
    std::error_code ignored;
    if (!path.empty())
        std::filesystem::remove_all(path, ignored);
    sigprocmask(SIG_SETMASK, &signals, nullptr);
}

Outcome Load(const std::string& path, ImageFile& file)
{
    const auto form = FormOf(path);
    std::string bytes;
    errno = 0;
    if (!form)
        return {Status::Usage, path + ": neither .hex, .bin nor .rlg"};
    if (!ReadBytes(path, bytes))
        return {Status::Usage, ReasonOf(path)};
    file.form = *form;
    if (*form == ImageForm::Hex) {
        file.hexText = std::move(bytes);
        file.report = CheckHex(file.hexText);
        return {};
    }
    if (std::string wrong = FormError(*form, bytes); !wrong.empty()) {
        file.report.findings.push_back({0, Severity::Error, std::move(wrong), std::nullopt});
        file.report.errors = 1;
        return {};
    }
    if (const std::string reason = Expand(path, *form, file.hexText); !reason.empty())
        return {Status::Failed, reason};
    file.report = CheckHex(file.hexText);
    for (Finding& finding : file.report.findings)
        finding.line = 0;
    return {};
}

Outcome LoadClean(const std::string& path, ImageFile& file)
{
    Outcome outcome = Load(path, file);
    if (outcome.status != Status::Success || file.report.errors == 0)
        return outcome;
    const auto& findings = file.report.findings;
    const auto first = std::find_if(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.severity == Severity::Error;
    });
    std::string reason = first == findings.end() ? path : Describe(path, *first);
    if (file.report.errors > 1)
        reason += "; check shows all " + std::to_string(file.report.errors) + " errors";
    return {Status::Failed, reason};
}

const char* NameOf(Severity severity)
{
    return severity == Severity::Error ? "error" : "warning";
}

std::string Describe(const std::string& path, const Finding& finding)
{
    const std::string line = finding.line > 0 ? ":" + std::to_string(finding.line) : std::string();
    return path + line + ": " + NameOf(finding.severity) + ": " + finding.text;
}

bool Save(const std::string& hexPath, ImageForm form, const std::string& path)
{
    if (form == ImageForm::Hex)
        return std::rename(hexPath.c_str(), path.c_str()) == 0;
    return (form == ImageForm::Rlg ? Compress : Intel2Bin)(hexPath.c_str(), path.c_str());
}
