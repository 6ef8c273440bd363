#pragma once

#include <cstddef>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

// The address of a UNIX socket at a path. Also for the preload library, so without the C++ runtime.
class UnixAddress {
public:
    explicit UnixAddress(const char* path)
    {
        const std::size_t length = std::strlen(path);
        fits = length < sizeof(address.sun_path);
        address.sun_family = AF_UNIX;
        if (fits)
            std::memcpy(address.sun_path, path, length);
    }

    // False when the path is too long for an address. It has no path then, and can't be used.
    bool Fits() const { return fits; }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address); }
    static constexpr socklen_t kSize = sizeof(sockaddr_un);

private:
    sockaddr_un address = {};
    bool fits;
};
