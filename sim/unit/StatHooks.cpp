// The forms of stat, with each width of sizes and times.

#include <sys/stat.h>

#include "MappedPath.h"
#include "Real.h"

#pragma GCC visibility push(default)

namespace {

template <typename Result>
using Stat = int(const char*, Result*);
template <typename Result>
using StatAt = int(int, const char*, Result*, int);
using OldStat = int(int, const char*, void*);

template <typename Function, typename Result>
int StatWith(Real<Function>& real, const char* path, Result* found)
{
    return CallAtPath(calls::stat, Intent::Look, UnitPath(path),
                      [&](const char* at) { return real(at, found); });
}

template <typename Function, typename Result>
int StatAtWith(Real<Function>& real, int directory, const char* path, Result* found, int flags)
{
    return CallAtPath(calls::stat, Intent::Look, UnitPath(path),
                      [&](const char* at) { return real(directory, at, found, flags); });
}

int OldStatWith(Real<OldStat>& real, int version, const char* path, void* found)
{
    return CallAtPath(calls::stat, Intent::Look, UnitPath(path),
                      [&](const char* at) { return real(version, at, found); });
}

}  // namespace

extern "C" {

int stat(const char* path, struct stat* found) noexcept
{
    static Real<Stat<struct stat>> real("stat");
    return StatWith(real, path, found);
}

int lstat(const char* path, struct stat* found) noexcept
{
    static Real<Stat<struct stat>> real("lstat");
    return StatWith(real, path, found);
}

int fstatat(int directory, const char* path, struct stat* found, int flags) noexcept
{
    static Real<StatAt<struct stat>> real("fstatat");
    return StatAtWith(real, directory, path, found, flags);
}

int stat64(const char* path, struct stat64* found) noexcept
{
    static Real<Stat<struct stat64>> real("stat64");
    return StatWith(real, path, found);
}

int lstat64(const char* path, struct stat64* found) noexcept
{
    static Real<Stat<struct stat64>> real("lstat64");
    return StatWith(real, path, found);
}

int fstatat64(int directory, const char* path, struct stat64* found, int flags) noexcept
{
    static Real<StatAt<struct stat64>> real("fstatat64");
    return StatAtWith(real, directory, path, found, flags);
}

int statx(int directory, const char* path, int flags, unsigned mask, struct statx* found) noexcept
{
    static Real<int(int, const char*, int, unsigned, struct statx*)> real("statx");
    return CallAtPath(calls::stat, Intent::Look, UnitPath(path),
                      [&](const char* at) { return real(directory, at, flags, mask, found); });
}

// The functions that programs built with an older libc call.
int __xstat(int version, const char* path, struct stat* found)
{
    static Real<OldStat> real("__xstat");
    return OldStatWith(real, version, path, found);
}

int __xstat64(int version, const char* path, struct stat64* found)
{
    static Real<OldStat> real("__xstat64");
    return OldStatWith(real, version, path, found);
}

int __lxstat(int version, const char* path, struct stat* found)
{
    static Real<OldStat> real("__lxstat");
    return OldStatWith(real, version, path, found);
}

int __lxstat64(int version, const char* path, struct stat64* found)
{
    static Real<OldStat> real("__lxstat64");
    return OldStatWith(real, version, path, found);
}

// The forms with 64-bit times of 32-bit machines.
#if __TIMESIZE == 32
int __stat64_time64(const char* path, void* found)
{
    static Real<Stat<void>> real("__stat64_time64");
    return StatWith(real, path, found);
}

int __lstat64_time64(const char* path, void* found)
{
    static Real<Stat<void>> real("__lstat64_time64");
    return StatWith(real, path, found);
}

int __fstatat64_time64(int directory, const char* path, void* found, int flags)
{
    static Real<StatAt<void>> real("__fstatat64_time64");
    return StatAtWith(real, directory, path, found, flags);
}
#endif

}  // extern "C"
