#include "Medium.h"

#include <cstring>

#include "Descriptors.h"
#include "Journal.h"
#include "Paths.h"
#include "Settings.h"
#include "System.h"

namespace {

constexpr char kFullAfter[] = "full-after";  // bytes that can still be written
constexpr char kPullAfter[] = "pull-after";  // bytes that can still be moved; stays at 0

constexpr const char* kMountPoints[] = {"usb", "cdrom", "floppy"};

// The name of the mount point at or below which the path lies, or null.
const char* MountPointOf(const char* path)
{
    const std::size_t parent = std::strlen(kMountParent);
    if (std::strncmp(path, kMountParent, parent) != 0 || path[parent] != '/')
        return nullptr;
    path += parent + 1;
    for (const char* name : kMountPoints) {
        const std::size_t length = std::strlen(name);
        if (std::strncmp(path, name, length) == 0 && (path[length] == '\0' || path[length] == '/'))
            return name;
    }
    return nullptr;
}

BoundedText MountControl(const char* name)
{
    BoundedText control;
    return control.Add("mounted-").Add(name);
}

bool IsMounted(const char* name)
{
    return HasControl(MountControl(name).Get());
}

void PullMedium()
{
    for (const char* name : kMountPoints)
        RemoveControl(MountControl(name).Get());
    ForgetMediumFiles();
    BoundedText line;
    Journal(line.Add("medium pulled"));
}

}  // namespace

const char* PathOnMedium(const char* path, unsigned long long& flags)
{
    const KeepErrno kept;
    const char* name = MountPointOf(path);
    if (name == nullptr || !IsMounted(name))
        return nullptr;
    ReadControl(MountControl(name).Get(), flags);
    return path + std::strlen(kMountParent) + 1 + std::strlen(name);
}

int MountMedium(const char* source, const char* target, unsigned long flags)
{
    const KeepErrno kept;
    const char* name = MountPointOf(target);
    if (name == nullptr || std::strcmp(source, kMediumDevice) != 0)
        return ENOENT;
    if (IsMounted(name))
        return EBUSY;
    unsigned long long left = 1;
    ReadControl(kPullAfter, left);
    if (left == 0 || !direct::Exists(InRoot(kMedium).Get()))
        return ENOMEDIUM;
    BoundedText line;
    WriteControl(MountControl(name).Get(), line.AddHex(flags).Add("\n"));
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
    RemoveControl(MountControl(name).Get());
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
