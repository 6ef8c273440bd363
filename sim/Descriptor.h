#pragma once

#include <utility>

#include <unistd.h>

// The owner of a descriptor of this process, in the simulated unit and in tests.
class Descriptor {
public:
    explicit Descriptor(int owned = -1) : number(owned) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }

    explicit operator bool() const { return number >= 0; }
    int Get() const { return number; }
    void Close()
    {
        if (number >= 0)
            close(number);
        number = -1;
    }

private:
    int number;  // below 0 when there is none
};
