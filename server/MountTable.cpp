#include "MountTable.h"

#include "TextFile.h"
#include "UnitPaths.h"

// A line has device, mount point, type, flags and two numbers, one blank between any two. A blank
// in a name is written as \040, which no device or mount point of the unit has.
MountTable::MountTable()
{
    PieceReader lines(kMounts);
    if (!lines)
        return;
    while (const char* piece = lines.Next()) {
        const std::string line = piece;
        const std::size_t first = line.find(' ');
        const std::size_t second = line.find(' ', first + 1);
        if (second != std::string::npos)
            mounts.push_back({line.substr(0, first), line.substr(first + 1, second - first - 1)});
    }
}

std::string MountTable::DeviceAt(const std::string& point) const
{
    std::string device;
    for (const Mount& mount : mounts) {
        if (mount.point == point)
            device = mount.device;
    }
    return device;
}

std::string MountTable::PointOf(const std::string& device) const
{
    for (const Mount& mount : mounts) {
        if (mount.device == device)
            return mount.point;
    }
    return {};
}
