#include "Medium.h"

#include <cstring>

#include <sys/mount.h>

#include "Descriptors.h"
#include "Journal.h"
#include "Settings.h"
#include "System.h"

namespace {

constexpr char kDevice[] = "/dev/sda";
constexpr char kFullAfter[] = "full-after";  // bytes that can still be written
constexpr char kPullAfter[] = "pull-after";  // bytes that can still be moved; stays at 0
constexpr char kMountFlags[] = "mount-flags";

constexpr const char* kMountPoints[] = {"usb", "cdrom", "floppy"};
constexpr char kMountParent[] = "/mnt/";

// The name of the mount point that the path begins with, or null.
const char* MountPointOf(const char* path)
{
    if (std::strncmp(path, kMountParent, sizeof(kMountParent) - 1) != 0)
        return nullptr;
    path += sizeof(kMountParent) - 1;
    for (const char* name : kMountPoints) {
        const std::size_t length = std::strlen(name);
        if (std::strncmp(path, name, length) == 0 && (path[length] == '\0' || path[length] == '/'))
            return name;
    }
    return nullptr;
}

// Where the mount point lies.
BoundedText PointPath(const char* name)
{
    return InRoot(kMountParent).Add(name);
}

// Where its directory waits while the medium covers it.
BoundedText CoveredPath(const char* name)
{
    return InRoot("/sim/under-").Add(name);
}

bool IsMounted(const char* name)
{
    return direct::IsLink(PointPath(name).Get());
}

void Uncover(const char* name)
{
    direct::Remove(PointPath(name).Get());
    if (!direct::Rename(CoveredPath(name).Get(), PointPath(name).Get()))
        direct::MakeDirectory(PointPath(name).Get());
}

void PullMedium()
{
    for (const char* name : kMountPoints)
        if (IsMounted(name))
            Uncover(name);
    ForgetMediumFiles();
    BoundedText line;
    Journal(line.Add("medium pulled"));
}

}  // namespace

bool IsMediumAt(const char* path)
{
    const KeepErrno kept;
    const char* name = MountPointOf(path);
    return name != nullptr && IsMounted(name);
}

bool IsMediumReadOnly()
{
    unsigned long long flags = 0;
    return ReadControl(kMountFlags, flags) && (flags & MS_RDONLY) != 0;
}

int MountMedium(const char* source, const char* target, unsigned long flags)
{
    const KeepErrno kept;
    const char* name = MountPointOf(target);
    if (name == nullptr || std::strcmp(source, kDevice) != 0)
        return ENOENT;
    if (IsMounted(name))
        return EBUSY;
    unsigned long long left = 1;
    ReadControl(kPullAfter, left);
    const BoundedText medium = InRoot("/medium");
    if (left == 0 || !direct::Exists(medium.Get()))
        return ENOMEDIUM;

    direct::Rename(PointPath(name).Get(), CoveredPath(name).Get());
    if (!direct::Link(medium.Get(), PointPath(name).Get()))
        return errno;
    BoundedText line;
    WriteControl(kMountFlags, line.AddHex(flags).Add("\n"));
    return 0;
}

int UnmountMedium(const char* target)
{
    const KeepErrno kept;
    const char* name = MountPointOf(target);
    if (name == nullptr || !IsMounted(name))
        return EINVAL;
    if (HasMediumFiles())
        return EBUSY;
    Uncover(name);
    return 0;
}

long LimitToMedium(std::size_t wanted, bool toMedium)
{
    unsigned long long room = wanted;
    unsigned long long left = 0;
    if (toMedium && ReadControl(kFullAfter, left) && left < room)
        room = left;
    if (wanted > 0 && room == 0) {
        errno = ENOSPC;
        return -1;
    }
    if (ReadControl(kPullAfter, left) && left < room)
        room = left;
    if (wanted > 0 && room == 0) {
        PullMedium();
        errno = EIO;
        return -1;
    }
    return static_cast<long>(room);
}

void CountOnMedium(std::size_t count, bool toMedium)
{
    unsigned long long left = 0;
    const auto take = [&](const char* control) {
        left = left > count ? left - count : 0;
        BoundedText line;
        WriteControl(control, line.AddNumber(left).Add("\n"));
    };
    if (count > 0 && toMedium && ReadControl(kFullAfter, left))
        take(kFullAfter);
    if (count > 0 && ReadControl(kPullAfter, left)) {
        take(kPullAfter);
        if (left == 0)
            PullMedium();
    }
}
