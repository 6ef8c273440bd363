// libc's streams. Stdio makes its reads and writes inside libc, where no hook sees them. So a
// stream on a descriptor of the unit has functions of this library, which stdio calls with its
// bytes. It can't seek: no program does.

#include <cstdint>
#include <cstdio>

#include "Descriptors.h"
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

int CloseStream(void* cookie)
{
    SetOwner(DescriptorOf(cookie), Owner::None);
    direct::Close(DescriptorOf(cookie));
    return 0;
}

}  // namespace

extern "C" {

// A stream on a descriptor that `open` has returned.
std::FILE* fdopen(int descriptor, const char* mode) noexcept
{
    static Real real(fdopen);
    if (OwnerOf(descriptor) == Owner::None)
        return real(descriptor, mode);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a cookie is a pointer, here a number
    void* const cookie = reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor));
    return fopencookie(cookie, mode,
                       cookie_io_functions_t{ReadStream, WriteStream, nullptr, CloseStream});
}

}  // extern "C"
