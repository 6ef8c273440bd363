#include "ParameterBackup.h"

#include <unistd.h>

#include "Compress.h"
#include "FileTools.h"
#include "TSString.h"
#include "UnitPaths.h"

namespace ParameterBackup {

namespace {

constexpr char kFileSystem[] = "vfat";
constexpr char kMountOptions[] = "iocharset=sjis,codepage=932";

// Unmounts the medium and returns where it was, null when there is none. The only way to find the
// medium is to try to unmount it.
const char* Unmount()
{
    for (const char* point : kPlaces) {
        if (umount(point) == 0)
            return point;
    }
    return nullptr;
}

// Mounts the medium again at its place, with the flags of the copy, and sets `directory` to that
// place, with a slash at its end.
Result Remount(unsigned long flags, TSString& directory)
{
    const char* mountPoint = Unmount();
    if (mountPoint == nullptr)
        return NoMedium;
    directory = TSString(mountPoint) + "/";
    if (Mount(kMediumDevice, directory.c_str(), flags) < 0)
        return NotCopied;
    return Copied;
}

}  // namespace

int Mount(const char* device, const char* place, unsigned long flags)
{
    return mount(device, place, kFileSystem, flags, kMountOptions);
}

// A failed mount hides a missing file, and a missing file a failed compression: the controller
// knows the results in this order.
Result CopyToMedium()
{
    TSString medium;
    if (const Result failure = Remount(kWriteFlags, medium); failure != Copied)
        return failure;
    if (!FileExists(kParameterFile))
        return NoParameterFile;
    if (!Compress(kParameterFile, kCompressedParameterFile))
        return NotCompressed;
    // Asked while the old copy is there, so its room doesn't count as free.
    if (!CheckDiskFree(medium.c_str(), kCompressedParameterFile))
        return NoRoom;

    const TSString target = medium + kMediumParameterFile;
    if (FileExists(target.c_str()))
        DeleteFile(target.c_str());
    if (CopyFile(kCompressedParameterFile, target.c_str()) != 0)
        return NotCopied;
    // The medium stays mounted and may be pulled out as soon as the controller shows the result.
    sync();
    return Copied;
}

Result CopyFromMedium()
{
    TSString medium;
    if (const Result failure = Remount(kReadFlags, medium); failure != Copied)
        return failure;
    const TSString source = medium + kMediumParameterFile;
    if (!FileExists(source.c_str()))
        return NoParameterFile;
    return Decompress(source.c_str(), kParameterFile) ? Copied : NotCopied;
}

const char* Text(int result)
{
    switch (result) {
    case Copied: return "Copy Success.\n";
    case NoParameterFile: return "Parameter file is not exists.\n";
    case NotCompressed: return "Binary file error.\n";
    case NoRoom: return "Free Disk space error.\n";
    case NoMedium: return "Floppy in not inserted.\n";
    case NotCopied:
    default: return "Copy error.\n";
    }
}

}  // namespace ParameterBackup
