#pragma once

#include <string>

// What must hold and doesn't. The walk adds by which events it came to that.
struct Violation {
    std::string what;
};

inline void Hold(bool holds, const char* otherwise)
{
    if (!holds)
        throw Violation{otherwise};
}
