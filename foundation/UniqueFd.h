#pragma once

#include <fcntl.h>
#include <unistd.h>

// What a file that may lie on a medium is opened with: the descriptor stays this program's own, and
// a pipe in the place of the file doesn't hold it up.
constexpr int kOpenFlags = O_CLOEXEC | O_NONBLOCK;

// The one owner of a descriptor; closes it on every way out of a scope.
class UniqueFd {
public:
    explicit UniqueFd(int owned) : descriptor(owned) {}
    ~UniqueFd()
    {
        if (descriptor >= 0)
            close(descriptor);
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    explicit operator bool() const { return descriptor >= 0; }
    int Get() const { return descriptor; }

    // Hands the descriptor to the caller, who closes it from here on.
    int Release()
    {
        const int released = descriptor;
        descriptor = -1;
        return released;
    }

private:
    int descriptor;
};
