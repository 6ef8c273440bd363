#pragma once

#include <string>
#include <vector>

// What is mounted where, as the kernel lists it at the moment of the construction.
class MountTable {
public:
    MountTable();

    // The device on top at the mount point, without a slash at its end; empty when none is known.
    std::string DeviceAt(const std::string& point) const;

    // A mount point of the device; empty when none is known.
    std::string PointOf(const std::string& device) const;

private:
    struct Mount {
        std::string device;
        std::string point;
    };
    std::vector<Mount> mounts;  // a later one hides an earlier one at its point
};
