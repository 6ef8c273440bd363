#include "Descriptors.h"

#include <sys/stat.h>

#include "FatName.h"
#include "System.h"
#include "Turn.h"

namespace {

// Higher ones aren't tracked; the program never gets that far.
constexpr int kMostDescriptors = 4096;

Owner owners[kMostDescriptors];

bool IsFollowed(int descriptor)
{
    return descriptor >= 0 && descriptor < kMostDescriptors;
}

}  // namespace

void SetOwner(int descriptor, Owner owner)
{
    if (IsFollowed(descriptor))
        owners[descriptor] = owner;
}

Owner OwnerOf(int descriptor)
{
    return IsFollowed(descriptor) ? owners[descriptor] : Owner::None;
}

unsigned OpenDescriptors()
{
    unsigned count = 0;
    for (int i = STDERR_FILENO + 1; i < kMostDescriptors; ++i)
        if (owners[i] != Owner::None)
            ++count;
    return count;
}

void StampFile(int descriptor)
{
    if (!HasClock())
        return;
    const KeepErrno kept;
    virtualtime::Moment now = ClockNow();
    if (OwnerOf(descriptor) == Owner::Medium)
        now = FatTime(now / virtualtime::kSecond) * virtualtime::kSecond;
    timespec time = {};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(now / virtualtime::kSecond);
    time.tv_nsec = static_cast<decltype(time.tv_nsec)>(now % virtualtime::kSecond);
    const timespec times[] = {time, time};
    futimens(descriptor, times);
}

bool HasMediumFiles()
{
    for (const Owner owner : owners)
        if (owner == Owner::Medium || owner == Owner::Gone)
            return true;
    return false;
}

void ForgetMediumFiles()
{
    for (Owner& owner : owners)
        if (owner == Owner::Medium)
            owner = Owner::Gone;
}
