#pragma once

#include <string>

// What must hold and doesn't.
struct Violation {
    std::string what;
};

inline void Hold(bool holds, const std::string& otherwise)
{
    if (!holds)
        throw Violation{otherwise};
}
