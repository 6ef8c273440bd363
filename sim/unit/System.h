#pragma once

#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

// The library's own way to the kernel. A libc function called from here would come back to the
// library's hook of that name, or to the interceptor of a sanitizer inside the program.
namespace direct {

inline int Open(const char* path, int flags)
{
    constexpr int kMode = 0666;
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC, kMode));
}

inline long Read(int descriptor, void* bytes, std::size_t size)
{
    return syscall(SYS_read, descriptor, bytes, size);
}

inline long Write(int descriptor, const void* bytes, std::size_t size)
{
    return syscall(SYS_write, descriptor, bytes, size);
}

inline void Close(int descriptor)
{
    syscall(SYS_close, descriptor);
}

// Adds bytes to a file in one write, so that those of several programs don't mix.
inline void Append(const char* path, const void* bytes, std::size_t size)
{
    const int file = Open(path, O_WRONLY | O_CREAT | O_APPEND);
    if (file < 0)
        return;
    Write(file, bytes, size);
    Close(file);
}

inline bool Exists(const char* path)
{
    return syscall(SYS_faccessat, AT_FDCWD, path, F_OK) == 0;
}

}  // namespace direct

// The result of a call that fails in this way.
inline int FailWith(int error)
{
    errno = error;
    return -1;
}

// Restores errno, so that the caller doesn't see what the library does around a call.
class KeepErrno {
public:
    KeepErrno() : kept(errno) {}
    ~KeepErrno() { errno = kept; }
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

private:
    int kept;
};
