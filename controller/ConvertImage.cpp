#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Command.h"
#include "Difference.h"
#include "Hexadecimal.h"
#include "ImageFile.h"
#include "IntelBin.h"
#include "UniqueFd.h"

namespace {

constexpr std::uint32_t kPageSize = 0x10000;

Outcome Fail(const std::string& reason)
{
    return {Status::Failed, reason};
}

// Why the image can't be in the form; empty when it can. A .bin or .rlg file has the upper half of
// one start address, and then only data.
std::string Obstacle(const HexReport& report, ImageForm form)
{
    if (form == ImageForm::Hex)
        return {};
    if (report.ranges.size() > 1)
        return "the data have a gap, which the target form cannot represent";
    if (const std::uint32_t start = report.ranges[0].start; start % kPageSize != 0)
        return "the data start at " + EightDigits(start) +
               ", and the target form can only start at a multiple of 64 KiB";
    return {};
}

// Converts into `work`, reads that back and compares.
std::string ConvertInto(const std::string& work, ImageForm form, const ImageFile& input,
                        const ScratchDirectory& scratch, ImageFile& output)
{
    // The unit loads a file whose first record has an address of its own, which means nothing, but
    // doesn't convert it.
    const std::string hexPath = scratch.Path("input.hex");
    std::ofstream hex(hexPath, std::ios::binary);
    hex << kUpperAddressHead << input.hexText.substr(kUpperAddressHead.size());
    hex.close();
    if (!hex || !Save(hexPath, form, work))
        return "the target can't be written";
    if (const Outcome loaded = Load(work, output); loaded.status != Status::Success)
        return loaded.reason;
    const bool isSame = DifferingAddresses(output.hexText, input.hexText).empty();
    return isSame ? "" : "the converted image differs from the input; nothing was written";
}

// The unit's code makes files that only their owner may read. This one gets the permissions of the
// target that it replaces, or those of any new file.
void SetPermissions(const std::string& path, const std::string& target)
{
    constexpr mode_t kAll = 0666;
    const mode_t mask = umask(0);
    umask(mask);
    struct stat old = {};
    chmod(path.c_str(), stat(target.c_str(), &old) == 0 ? old.st_mode : kAll & ~mask);
}

// Some disks refuse bytes only when they come to write them. False with the reason in errno.
bool Sync(const std::string& path)
{
    const UniqueFd file(open(path.c_str(), O_RDONLY | kOpenFlags));
    return file && fsync(file.Get()) == 0;
}

Outcome ConvertTo(const std::string& target, ImageForm form, const ImageFile& input)
{
    const std::string parent = std::filesystem::path(target).parent_path();
    const std::string directory = parent.empty() ? "." : parent;
    const ScratchDirectory scratch(directory);
    if (!scratch)
        return Fail(target + ": " + std::strerror(errno));
    // The name of the work file has the extension by which its form is known.
    const std::string extension = std::filesystem::path(target).extension();
    const std::string work = scratch.Path("output" + extension);
    ImageFile output;
    if (const std::string error = ConvertInto(work, form, input, scratch, output); !error.empty())
        return Fail(target + ": " + error);
    if (output.report.version != input.report.version)
        Complain("the version text becomes \"" + output.report.version +
                 "\", because the unit makes other records");
    if (!Sync(work))
        return Fail(target + ": " + std::strerror(errno));
    SetPermissions(work, target);
    if (std::rename(work.c_str(), target.c_str()) != 0)
        return Fail(target + ": " + std::strerror(errno));
    Sync(directory);  // for a medium that is pulled out next; not every file system can do it
    return {};
}

}  // namespace

Outcome ConvertImage(const Invocation& invocation)
{
    if (invocation.arguments.size() != 2)
        return WrongUsage("convert takes the file to read and the file to write");
    const std::string& source = invocation.arguments[0];
    const std::string& target = invocation.arguments[1];
    const auto form = FormOf(target);
    if (!form || form == FormOf(source))
        return WrongUsage("convert goes from one of .hex, .bin and .rlg to another");
    std::error_code problem;
    if (!invocation.force && std::filesystem::exists(target, problem))
        return Fail(target + " exists; --force overwrites it");
    if (problem)
        return Fail(target + ": " + problem.message());
    ImageFile input;
    if (Outcome loaded = LoadClean(source, input); loaded.status != Status::Success)
        return loaded;
    if (const std::string obstacle = Obstacle(input.report, *form); !obstacle.empty())
        return Fail(source + ": " + obstacle);
    return ConvertTo(target, *form, input);
}
