#pragma once

#include <string>

// The owner of a descriptor of this process.
class Descriptor {
public:
    explicit Descriptor(int owned = -1) : number(owned) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor&& other) noexcept : number(other.number) { other.number = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept;

    explicit operator bool() const { return number >= 0; }
    int Get() const { return number; }
    void Close();

private:
    int number;
};

// Both replace a file at `path`. On failure the reason is on standard error and the result owns
// nothing. The sockets never block.
Descriptor ListenAt(const std::string& path);
Descriptor BindDatagramAt(const std::string& path);
