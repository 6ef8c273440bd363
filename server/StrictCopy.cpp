#include "StrictCopy.h"

#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CheckedFile.h"
#include "Compress.h"
#include "CompressedFile.h"
#include "FileBytes.h"
#include "MountTable.h"
#include "OutputFile.h"
#include "Reason.h"
#include "SumFile.h"
#include "UniqueFd.h"
#include "UnitPaths.h"
#include "WholeFile.h"

using ParameterBackup::Copied;

// The order of the checks is that of the default copy, so that a controller knows the results.
ParameterBackup::Result StrictCopy::ToMedium()
{
    if (const Result failure = Remount(ParameterBackup::kWriteFlags); failure != Copied)
        return failure;
    const CheckedFile source(kParameterFile);
    if (source.isMissing)
        return Fail(ParameterBackup::NoParameterFile, source.errors.front());
    if (const std::string problem = source.ReadBackProblem(); !problem.empty())
        return Fail(ParameterBackup::NotCompressed, problem);
    const std::optional<std::string> packed = CompressImage(source.text);
    return packed ? ReplaceOnMedium(*packed)
                  : Fail(ParameterBackup::NotCompressed, ReasonFor(kParameterFile, 0));
}

ParameterBackup::Result StrictCopy::FromMedium()
{
    if (const Result failure = Remount(ParameterBackup::kReadFlags); failure != Copied)
        return failure;
    const CompressedFile source(Path(kMediumParameterFile));
    if (source.isMissing)
        return Fail(ParameterBackup::NoParameterFile, source.problem);
    if (!source.problem.empty())
        return Fail(ParameterBackup::NotCopied, source.problem);
    const CheckedFile image(Path(kMediumParameterFile) + ", expanded", source.hexText);
    if (const std::string problem = image.ReadBackProblem(); !problem.empty())
        return Fail(ParameterBackup::NotCopied, problem);
    reasons = source.notes;
    WholeFile target(kParameterFile);
    const bool isReplaced = target.Write(image.text) && target.Commit();
    return isReplaced ? Copied : Fail(ParameterBackup::NotCopied, target.Problem());
}

ParameterBackup::Result StrictCopy::Remount(unsigned long flags)
{
    reasons.clear();
    const MountTable table;
    std::string failures;
    for (const char* place : ParameterBackup::kPlaces) {
        directory = std::string(place) + "/";
        if (umount(place) == 0)
            return Mount(table.DeviceAt(place), flags);
        failures += failures.empty() ? "" : "; ";
        failures += errno == EINVAL ? std::string(place) + ": not mounted" : ReasonFor(place);
    }
    return Fail(ParameterBackup::NoMedium, failures);
}

// Only a device that isn't known is taken for the usual one: another one may be another medium.
ParameterBackup::Result StrictCopy::Mount(const std::string& device, unsigned long flags)
{
    const std::string source = device.empty() ? kMediumDevice : device;
    if (ParameterBackup::Mount(source.c_str(), directory.c_str(), flags) == 0)
        return Copied;
    const std::string reason = ReasonFor(source);
    const std::string other = errno == EBUSY ? MountTable().PointOf(source) : "";
    return Fail(ParameterBackup::NotCopied,
                other.empty() ? reason : reason + ", since it is mounted at " + other + ", too");
}

// WriteFiles has closed the replaced files; the flush after it frees their room on the medium, and
// lets no work file stay there even if the stick is pulled now.
ParameterBackup::Result StrictCopy::ReplaceOnMedium(const std::string& packed)
{
    const std::string path = Path(kMediumParameterFile);
    const std::string sum = SumLine(packed, kMediumParameterFile) + SumOfOldImage();
    const Result result = WriteFiles(packed, sum);
    const bool isFlushed = FlushMedium();
    if (result != Copied)
        return result;
    if (isFlushed && IsOnDisk(path, packed) && IsOnDisk(CompressedFile::SumPath(path), sum))
        return Copied;
    return Fail(ParameterBackup::NotCopied, ReasonFor(path + ": replaced, but not verified"));
}

// The checksum's line of the image on the medium if that matches its checksum, else empty.
std::string StrictCopy::SumOfOldImage() const
{
    const std::string path = Path(kMediumParameterFile);
    FileBytes image;
    FileBytes sum;
    const bool isGood =
        ReadWholeFile(path.c_str(), image, CheckedFile::kLargest) &&
        ReadWholeFile(CompressedFile::SumPath(path).c_str(), sum, CompressedFile::kLargestSum) &&
        SumMatches(sum.Text(), image.Text());
    return isGood ? SumLine(image.Text(), kMediumParameterFile) : "";
}

// If there is a checksum, the new one is committed first: it lists the old and the new image, so
// either matches after a failure. If there is none, the image is committed first: otherwise a
// failure would leave a checksum that doesn't match the old image. An empty one, which counts as
// none, takes the room for its name beforehand, so that only an I/O error can stop it later.
ParameterBackup::Result StrictCopy::WriteFiles(const std::string& image, const std::string& sum)
{
    const std::string path = Path(kMediumParameterFile);
    const std::string sumPath = CompressedFile::SumPath(path);
    WholeFile newImage(path, Path(kMediumParameterWork));
    WholeFile newSum(sumPath, Path(kMediumSumWork));
    if (!newImage.Write(image))
        return FailToReplace(newImage, newImage.Problem());
    if (!newSum.Write(sum))
        return FailToReplace(newImage, newSum.Problem());
    const UniqueFd oldSum(open(sumPath.c_str(), O_RDONLY | O_CREAT | kOpenFlags, kForEverybody));
    struct stat state = {};
    if (!oldSum || fstat(oldSum.Get(), &state) != 0)
        return FailToReplace(newImage, ReasonFor(sumPath));
    const bool hasSum = state.st_size > 0;
    for (WholeFile* file : {hasSum ? &newSum : &newImage, hasSum ? &newImage : &newSum}) {
        if (!file->Commit() || !FlushMedium())
            return FailToReplace(newImage, file->Problem());
    }
    return Copied;
}

// "Free Disk space error." promises that the old copy is still there.
ParameterBackup::Result StrictCopy::FailToReplace(const WholeFile& image,
                                                  const std::string& problem)
{
    if (image.IsReplaced())
        return Fail(ParameterBackup::NotCopied, problem + "; the new copy is in place");
    return Fail(errno == ENOSPC ? ParameterBackup::NoRoom : ParameterBackup::NotCopied, problem);
}

// The first call reports what couldn't be written, the second empties the medium's own cache.
bool StrictCopy::FlushMedium() const
{
    const UniqueFd medium(open(directory.c_str(), O_RDONLY | O_DIRECTORY | kOpenFlags));
    return medium && syncfs(medium.Get()) == 0 && FlushDirectoryOf(directory);
}

ParameterBackup::Result StrictCopy::Fail(Result result, const std::string& reason)
{
    reasons = {reason};
    return result;
}
