#pragma once

#include <unistd.h>

#include "TempDir.h"

// A simulated unit for a test program that links its library: the product's fixed paths are below
// Path(). There is one, from before the first test to the end.
class OwnUnit : public TempDir {
public:
    OwnUnit()
    {
        // The library reads its settings at the first hooked call, so these calls come first.
        setenv("SIMUNIT_ROOT", Path().c_str(), 1);
        CopyNewUnit(Path());
    }
};
inline const OwnUnit ownUnit;

// The product's sleeps end at once in such a program.
extern "C" {
[[gnu::used]] inline unsigned sleep(unsigned)
{
    return 0;
}
[[gnu::used]] inline int usleep(useconds_t)
{
    return 0;
}
}
