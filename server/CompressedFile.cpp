#include "CompressedFile.h"

#include <cerrno>
#include <optional>
#include <utility>

#include "CheckedFile.h"
#include "Compress.h"
#include "FileBytes.h"
#include "Reason.h"
#include "SumFile.h"

static constexpr std::string_view kExtension = ".rlg";

CompressedFile::CompressedFile(const std::string& path)
{
    FileBytes packed;
    if (!ReadWholeFile(path.c_str(), packed, CheckedFile::kLargest)) {
        isMissing = errno == ENOENT || errno == EACCES;
        problem = ReasonFor(path);
    } else {
        CompareWithSum(path, packed.Text());
        if (problem.empty())
            Expand(path, packed.Text());
    }
}

void CompressedFile::CompareWithSum(const std::string& path, std::string_view packed)
{
    const std::string sumPath = SumPath(path);
    FileBytes sum;
    // A power cut may leave the first checksum empty, so an empty one counts as missing.
    const bool isRead = ReadWholeFile(sumPath.c_str(), sum, kLargestSum);
    if (isRead ? sum.size == 0 : errno == ENOENT)
        notes = {path + ": not verified, since there is no " + sumPath};
    else if (!isRead)
        problem = ReasonFor(sumPath);
    else if (!SumMatches(sum.Text(), packed))
        problem = path + ": damaged, since " + sumPath + " doesn't match";
}

void CompressedFile::Expand(const std::string& path, std::string_view packed)
{
    if (std::optional<std::string> expanded = ExpandImage(packed))
        hexText = std::move(*expanded);
    else
        problem = path + ": cut off, or larger than the flash when expanded";
}

bool CompressedFile::HasItsName(const std::string& path)
{
    return path.size() >= kExtension.size() &&
           path.compare(path.size() - kExtension.size(), kExtension.size(), kExtension) == 0;
}

std::string CompressedFile::SumPath(const std::string& path)
{
    return path.substr(0, path.size() - kExtension.size()) + kSumExtension;
}
