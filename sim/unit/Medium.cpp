#include "Medium.h"

#include <cstring>

#include <sys/mount.h>

#include "Descriptors.h"
#include "FatName.h"
#include "Journal.h"
#include "Paths.h"
#include "Settings.h"
#include "System.h"

namespace {

constexpr char kFullAfter[] = "full-after";  // bytes that can still be written
constexpr char kPullAfter[] = "pull-after";  // bytes that can still be moved; stays at 0
constexpr char kDevice[] = "device";
constexpr char kMountList[] = "mounts";

// Empty when the medium was pulled out.
BoundedText Device()
{
    return ControlWord(kDevice, kMediumDevice);
}

// A word of a line, which ends at a blank.
struct Word {
    const char* text;
    std::size_t length;

    explicit Word(const char* start) : text(start), length(std::strcspn(start, " \n")) {}
    const char* Next() const { return text + length + (text[length] == ' ' ? 1 : 0); }
    bool Is(const BoundedText& other) const
    {
        return length == other.Length() && std::strncmp(text, other.Get(), length) == 0;
    }
};

// A line of the list.
struct Mount {
    Word device;
    Word point;
    bool isReadOnly;

    explicit Mount(const char* line)
        : device(line),
          point(device.Next()),
          isReadOnly(std::strncmp(Word(point.Next()).Next(), "ro", 2) == 0)
    {}
    // True for the mount point and what lies below it.
    bool Covers(const char* path) const
    {
        return point.length > 0 && std::strncmp(path, point.text, point.length) == 0 &&
               (path[point.length] == '\0' || path[point.length] == '/');
    }
};

// The start of the last line for which the condition is true, or null.
template <typename Condition>
const char* LastLine(const BoundedText& mounts, Condition isWanted)
{
    const char* found = nullptr;
    for (const char* line = mounts.Get(); *line != '\0';) {
        if (isWanted(Mount(line)))
            found = line;
        line += std::strcspn(line, "\n");
        line += *line == '\n' ? 1 : 0;
    }
    return found;
}

BoundedText WithoutSlash(const char* path)
{
    std::size_t length = std::strlen(path);
    while (length > 1 && path[length - 1] == '/')
        --length;
    BoundedText point;
    return point.Add(path, length);
}

bool HasWorkingDirectory()
{
    char current[PATH_MAX] = "";
    const BoundedText medium = InRoot(kMedium);
    return syscall(SYS_getcwd, current, sizeof(current)) > 0 &&
           std::strncmp(current, medium.Get(), medium.Length()) == 0;
}

}  // namespace

void PullMedium()
{
    const KeepErrno kept;
    WriteControl(kDevice, {});
    ForgetMediumFiles();
    BoundedText line;
    Journal(line.Add("medium pulled"));
}

void FindOnMedium(const char* path, OnMedium& found)
{
    const KeepErrno kept;
    if (std::strncmp(path, kMountParent, std::strlen(kMountParent)) != 0)
        return;
    const BoundedText mounts = ReadControl(kMountList);
    const char* line = LastLine(mounts, [&](const Mount& each) { return each.Covers(path); });
    if (line == nullptr)
        return;
    const Mount mount(line);
    found.file = FindFatNames(InRoot(kMedium), path + mount.point.length);
    found.isReadOnly = mount.isReadOnly;
    found.isRoot =
        std::strspn(path + mount.point.length, "/.") == std::strlen(path + mount.point.length);
    found.isPulled = !mount.device.Is(Device());
}

// One device has one file system, so a second mount of it must agree whether it is read-only.
int MountMedium(const char* source, const char* target, unsigned long flags, const char* options)
{
    const KeepErrno kept;
    const BoundedText device = Device();
    if (device.Length() == 0 || std::strncmp(device.Get(), source, std::strlen(source)) != 0 ||
        std::strncmp(target, kMountParent, std::strlen(kMountParent)) != 0 ||
        !direct::Exists(InRoot(target).Get()))
        return ENOENT;
    if (!device.EndsWith(source))  // the disk of a partition
        return EINVAL;
    BoundedText mounts = ReadControl(kMountList);
    const bool isReadOnly = (flags & MS_RDONLY) != 0;
    const BoundedText point = WithoutSlash(target);
    const auto isInTheWay = [&](const Mount& each) {
        return each.device.Is(device) && (each.point.Is(point) || each.isReadOnly != isReadOnly);
    };
    if (LastLine(mounts, isInTheWay) != nullptr)
        return EBUSY;
    mounts.Add(source).Add(" ").Add(point.Get()).Add(isReadOnly ? " vfat ro" : " vfat rw");
    mounts.Add((flags & MS_NOSUID) != 0 ? ",nosuid" : "");
    mounts.Add((flags & MS_NOEXEC) != 0 ? ",noexec" : "").Add(",relatime,").Add(options);
    WriteControl(kMountList, mounts.Add(" 0 0\n"));
    return 0;
}

int UnmountMedium(const char* target)
{
    const KeepErrno kept;
    const BoundedText mounts = ReadControl(kMountList);
    const BoundedText point = WithoutSlash(target);
    const char* line = LastLine(mounts, [&](const Mount& each) { return each.point.Is(point); });
    if (line == nullptr)
        return EINVAL;
    if (HasMediumFiles() || HasWorkingDirectory())
        return EBUSY;
    BoundedText left;
    left.Add(mounts.Get(), static_cast<std::size_t>(line - mounts.Get()));
    line += std::strcspn(line, "\n");
    WriteControl(kMountList, left.Add(*line == '\n' ? line + 1 : line));
    return 0;
}

long LimitToMedium(std::size_t wanted, bool toMedium)
{
    unsigned long long room = wanted;
    unsigned long long left = 0;
    if (toMedium && ReadControl(kFullAfter, left) && left < room)
        room = left;
    if (wanted > 0 && room == 0)
        return FailWith(ENOSPC);
    if (ReadControl(kPullAfter, left) && left < room)
        room = left;
    if (wanted > 0 && room == 0) {
        PullMedium();
        return FailWith(EIO);
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
