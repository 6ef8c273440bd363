// libc's streams. Stdio makes its reads and writes inside libc, where no hook sees them. So a
// stream of the unit consists of a descriptor and of functions of this library, which stdio calls
// with its bytes.

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "MappedPath.h"
#include "Real.h"
#include "Transfer.h"

#pragma GCC visibility push(default)

namespace {

int DescriptorOf(void* cookie)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie));
}

ssize_t ReadStream(void* cookie, char* bytes, std::size_t size)
{
    const int descriptor = DescriptorOf(cookie);
    return TransferWithFaults(calls::streamRead, descriptor, size, [&](std::size_t fits) {
        return direct::Read(descriptor, bytes, fits);
    });
}

// Like libc for a file: the rest of a short write is written with the next one.
ssize_t WriteStream(void* cookie, const char* bytes, std::size_t size)
{
    const int descriptor = DescriptorOf(cookie);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count =
            TransferWithFaults(calls::streamWrite, descriptor, size - done, [&](std::size_t fits) {
                return direct::Write(descriptor, bytes + done, fits);
            });
        if (count < 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

int SeekStream(void* cookie, off64_t* offset, int whence)
{
    const off64_t place = lseek64(DescriptorOf(cookie), *offset, whence);
    if (place < 0)
        return -1;
    *offset = place;
    return 0;
}

int CloseStream(void* cookie)
{
    SetOwner(DescriptorOf(cookie), Owner::None);
    direct::Close(DescriptorOf(cookie));
    return 0;
}

// The flags of open for a mode such as "a+"; -1 for an invalid mode.
int FlagsOf(const char* mode)
{
    const bool both = std::strchr(mode, '+') != nullptr;
    const int writes = both ? O_RDWR : O_WRONLY;
    int flags = std::strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0;
    if (std::strchr(mode, 'x') != nullptr)
        flags |= O_EXCL;
    switch (mode[0]) {
    case 'r': return flags | (both ? O_RDWR : O_RDONLY);
    case 'w': return flags | writes | O_CREAT | O_TRUNC;
    case 'a': return flags | writes | O_CREAT | O_APPEND;
    default: return -1;
    }
}

std::FILE* StreamOf(int descriptor, const char* mode)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a cookie is a pointer, here a number
    void* cookie = reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor));
    return fopencookie(cookie, mode,
                       cookie_io_functions_t{ReadStream, WriteStream, SeekStream, CloseStream});
}

}  // namespace

extern "C" {

std::FILE* fopen(const char* path, const char* mode)
{
    static Real real(fopen);
    const int flags = FlagsOf(mode);
    if (!UnitPath(path).IsUnits() || flags < 0) {
        std::FILE* stranger = real(path, mode);
        if (stranger != nullptr)
            SetOwner(fileno(stranger), Owner::Stranger);
        return stranger;
    }
    const int made =
        OpenMapped(path, flags, [&](const char* at) { return direct::Open(at, flags); });
    return made < 0 ? nullptr : StreamOf(made, mode);
}

// A stream on a descriptor that one of the open calls has returned.
std::FILE* fdopen(int descriptor, const char* mode) noexcept
{
    static Real real(fdopen);
    return IsUnits(OwnerOf(descriptor)) ? StreamOf(descriptor, mode) : real(descriptor, mode);
}

int fclose(std::FILE* file)
{
    static Real real(fclose);
    SetOwner(fileno(file), Owner::None);  // a stream of the unit has no descriptor
    return real(file);
}

}  // extern "C"
