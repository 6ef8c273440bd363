// libc's functions that open, name, examine and change files.

#include <cstdarg>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include "MappedPath.h"
#include "Real.h"
#include "Subject.h"
#include "Turn.h"

#pragma GCC visibility push(default)

extern "C" {

int open(const char* path, int flags, ...)
{
    static Real real(open);
    std::va_list arguments;
    va_start(arguments, flags);
    // The permission bits follow the flags when a file may be made.
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return OpenMapped(path, flags, [&](const char* at) { return real(at, flags, mode); });
}

int close(int descriptor)
{
    static Real real(close);
    if (OwnerOf(descriptor) == Owner::Tcp)
        NoteTcp();
    SetOwner(descriptor, Owner::None);
    return real(descriptor);
}

int unlink(const char* path) noexcept
{
    static Real real(unlink);
    return CallAtPath(calls::unlink, Intent::Change, UnitPath(path), real);
}

// The medium is a file system of its own.
int rename(const char* from, const char* to) noexcept
{
    static Real real(rename);
    const UnitPath source(from);
    const UnitPath target(to);
    BoundedText both;
    both.Add(SubjectName(from).Get()).Add(">").Add(SubjectName(to).Get());
    if (source.IsUnits() && FailsNow(calls::rename, both.Get()))
        return -1;
    if (source.IsOnMedium() != target.IsOnMedium())
        return FailWith(EXDEV);
    if (target.IsRefused())
        return FailWith(EINVAL);
    return CallAtPath(calls::uncounted, Intent::Change, source, [&](const char* sourceAt) {
        return CallAtPath(calls::uncounted, Intent::Change, target,
                          [&](const char* targetAt) { return real(sourceAt, targetAt); });
    });
}

int ftruncate(int descriptor, off_t size) noexcept
{
    static Real real(ftruncate);
    if (IsUnits(OwnerOf(descriptor)) && FailsNow(calls::truncate, descriptor))
        return -1;
    return real(descriptor, size);
}

int access(const char* path, int mode) noexcept
{
    static Real real(access);
    const Intent intent = (mode & W_OK) != 0 ? Intent::Change : Intent::Look;
    return CallAtPath(calls::uncounted, intent, UnitPath(path),
                      [&](const char* at) { return real(at, mode); });
}

int utime(const char* path, const utimbuf* times) noexcept
{
    static Real real(utime);
    const UnitPath changed(path);
    return CallAtPath(calls::utime, Intent::Change, changed, [&](const char* at) {
        if (!changed.IsOnMedium() || times == nullptr)
            return real(at, times);
        const utimbuf rounded = {FatTime(times->actime), FatTime(times->modtime)};
        return real(at, &rounded);
    });
}

int stat(const char* path, struct stat* found) noexcept
{
    static Real real(static_cast<int (*)(const char*, struct stat*) noexcept>(stat));
    return CallAtPath(calls::stat, Intent::Look, UnitPath(path),
                      [&](const char* at) { return real(at, found); });
}

int lstat(const char* path, struct stat* found) noexcept
{
    static Real real(lstat);
    return CallAtPath(calls::stat, Intent::Look, UnitPath(path),
                      [&](const char* at) { return real(at, found); });
}

}  // extern "C"
