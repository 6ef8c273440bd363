// libc's functions that open, name and change files. Each plain function has relatives with the
// same meaning: 64-bit forms, forms at a directory, and the checked forms of fortified builds.

#include <cstdarg>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

#include "MappedPath.h"
#include "Real.h"
#include "Subject.h"
#include "Turn.h"

#pragma GCC visibility push(default)

namespace {

using Open = int(const char*, int, ...);
using OpenAt = int(int, const char*, int, ...);
using OpenChecked = int(const char*, int);
using OpenAtChecked = int(int, const char*, int);

// The permission bits, which follow the flags when a file may be created.
mode_t ModeOf(int flags, std::va_list arguments)
{
    const bool hasMode = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return hasMode ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

int OpenWith(Real<Open>& real, const char* path, int flags, mode_t mode)
{
    return OpenMapped(path, flags, [&](const char* at) { return real(at, flags, mode); });
}

int OpenAtWith(Real<OpenAt>& real, int directory, const char* path, int flags, mode_t mode)
{
    return OpenMapped(path, flags,
                      [&](const char* at) { return real(directory, at, flags, mode); });
}

Real<Open> realOpen("open");
Real<Open> realOpen64("open64");
Real<OpenAt> realOpenat("openat");
Real<OpenAt> realOpenat64("openat64");

}  // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenWith(realOpen, path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenWith(realOpen64, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenAtWith(realOpenat, directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenAtWith(realOpenat64, directory, path, flags, mode);
}

// The checked forms are for calls without permission bits.
int __open_2(const char* path, int flags)
{
    return OpenWith(realOpen, path, flags, 0);
}

int __open64_2(const char* path, int flags)
{
    return OpenWith(realOpen64, path, flags, 0);
}

int __openat_2(int directory, const char* path, int flags)
{
    return OpenAtWith(realOpenat, directory, path, flags, 0);
}

int __openat64_2(int directory, const char* path, int flags)
{
    return OpenAtWith(realOpenat64, directory, path, flags, 0);
}

int creat(const char* path, mode_t mode)
{
    return OpenWith(realOpen, path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}

int creat64(const char* path, mode_t mode)
{
    return OpenWith(realOpen64, path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}

int close(int descriptor)
{
    static Real<int(int)> real("close");
    if (OwnerOf(descriptor) == Owner::Tcp)
        NoteTcp();
    SetOwner(descriptor, Owner::None);
    return real(descriptor);
}

int unlink(const char* path) noexcept
{
    static Real<int(const char*)> real("unlink");
    return CallAtPath(calls::unlink, Intent::Change, UnitPath(path), real);
}

int unlinkat(int directory, const char* path, int flags) noexcept
{
    static Real<int(int, const char*, int)> real("unlinkat");
    return CallAtPath(calls::unlink, Intent::Change, UnitPath(path),
                      [&](const char* at) { return real(directory, at, flags); });
}

int remove(const char* path) noexcept
{
    static Real<int(const char*)> real("remove");
    return CallAtPath(calls::unlink, Intent::Change, UnitPath(path), real);
}

int rename(const char* from, const char* to) noexcept
{
    static Real<int(const char*, const char*)> real("rename");
    const UnitPath source(from);
    const UnitPath target(to);
    BoundedText both;
    both.Add(SubjectName(from).Get()).Add(">").Add(SubjectName(to).Get());
    if (source.IsUnits() && FailsNow(calls::rename, both.Get()))
        return -1;
    if (source.IsOnMedium() != target.IsOnMedium()) {
        errno = EXDEV;
        return -1;
    }
    return CallAtPath(calls::uncounted, Intent::Change, source, [&](const char* sourceAt) {
        return CallAtPath(calls::uncounted, Intent::Change, target,
                          [&](const char* targetAt) { return real(sourceAt, targetAt); });
    });
}

int ftruncate64(int descriptor, off64_t size) noexcept
{
    static Real<int(int, off64_t)> real("ftruncate64");
    if (IsUnits(OwnerOf(descriptor)) && FailsNow(calls::truncate, descriptor))
        return -1;
    return real(descriptor, size);
}

int access(const char* path, int mode) noexcept
{
    static Real<int(const char*, int)> real("access");
    const Intent intent = (mode & W_OK) != 0 ? Intent::Change : Intent::Look;
    return CallAtPath(calls::uncounted, intent, UnitPath(path),
                      [&](const char* at) { return real(at, mode); });
}

int mkdir(const char* path, mode_t mode) noexcept
{
    static Real<int(const char*, mode_t)> real("mkdir");
    return CallAtPath(calls::uncounted, Intent::Change, UnitPath(path),
                      [&](const char* at) { return real(at, mode); });
}

int utime(const char* path, const utimbuf* times) noexcept
{
    static Real<int(const char*, const utimbuf*)> real("utime");
    return CallAtPath(calls::utime, Intent::Change, UnitPath(path),
                      [&](const char* at) { return real(at, times); });
}

int utimes(const char* path, const timeval* times) noexcept
{
    static Real<int(const char*, const timeval*)> real("utimes");
    return CallAtPath(calls::utime, Intent::Change, UnitPath(path),
                      [&](const char* at) { return real(at, times); });
}

int utimensat(int directory, const char* path, const timespec* times, int flags) noexcept
{
    static Real<int(int, const char*, const timespec*, int)> real("utimensat");
    return CallAtPath(calls::utime, Intent::Change, UnitPath(path),
                      [&](const char* at) { return real(directory, at, times, flags); });
}

// The forms with 64-bit times of 32-bit machines.
#if __TIMESIZE == 32
int __utime64(const char* path, const void* times)
{
    static Real<int(const char*, const void*)> real("__utime64");
    return CallAtPath(calls::utime, Intent::Change, UnitPath(path),
                      [&](const char* at) { return real(at, times); });
}

int __utimes64(const char* path, const void* times)
{
    static Real<int(const char*, const void*)> real("__utimes64");
    return CallAtPath(calls::utime, Intent::Change, UnitPath(path),
                      [&](const char* at) { return real(at, times); });
}

int __utimensat64(int directory, const char* path, const void* times, int flags)
{
    static Real<int(int, const char*, const void*, int)> real("__utimensat64");
    return CallAtPath(calls::utime, Intent::Change, UnitPath(path),
                      [&](const char* at) { return real(directory, at, times, flags); });
}
#endif

}  // extern "C"
