#pragma once

#include <fcntl.h>
#include <unistd.h>

// For opening a file that may be on a medium: the descriptor stays this program's own, and a pipe
// in the place of the file doesn't block the program.
constexpr int kOpenFlags = O_CLOEXEC | O_NONBLOCK;

// The one owner of a descriptor; closes it on every way out of a scope.
class UniqueFd {
public:
    explicit UniqueFd(int owned) : descriptor(owned) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : descriptor(other.Release()) {}
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    explicit operator bool() const { return descriptor >= 0; }
    int Get() const { return descriptor; }

    // Closes the descriptor and owns `next` in its place, by default nothing.
    void Reset(int next = -1)
    {
        if (descriptor >= 0)
            close(descriptor);
        descriptor = next;
    }

    // Hands the descriptor to the caller, who closes it from here on.
    int Release()
    {
        const int released = descriptor;
        descriptor = -1;
        return released;
    }

private:
    int descriptor = -1;  // below 0 when there is none: the error that the opening returned
};
