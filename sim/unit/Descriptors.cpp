#include "Descriptors.h"

#include <algorithm>
#include <iterator>

#include <sys/stat.h>

#include "FatName.h"
#include "System.h"
#include "Times.h"
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
    const auto isOpen = [](Owner each) { return each != Owner::None; };
    return static_cast<unsigned>(
        std::count_if(owners + STDERR_FILENO + 1, std::end(owners), isOpen));
}

void StampFile(int descriptor)
{
    if (!HasClock())
        return;
    const KeepErrno kept;
    virtualtime::Moment now = ClockNow();
    if (OwnerOf(descriptor) == Owner::Medium)
        now = FatTime(now / virtualtime::kSecond) * virtualtime::kSecond;
    const timespec times[] = {TimespecOf(now), TimespecOf(now)};
    futimens(descriptor, times);
}

bool HasMediumFiles()
{
    const auto isOnMedium = [](Owner each) { return each == Owner::Medium || each == Owner::Gone; };
    return std::any_of(std::begin(owners), std::end(owners), isOnMedium);
}

void ForgetMediumFiles()
{
    std::replace(std::begin(owners), std::end(owners), Owner::Medium, Owner::Gone);
}
