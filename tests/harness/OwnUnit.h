#pragma once

#include <cstdlib>

#include "TempDir.h"
#include "Unit.h"

// A simulated unit for a test program that links its library: the product's fixed paths are below
// Path(), and its sleeps end at once. There is one, from before the first test to the end.
class OwnUnit : public TempDir {
public:
    OwnUnit()
    {
        // The library reads its settings at the first hooked call, so these calls come first.
        setenv("SIMUNIT_ROOT", Path().c_str(), 1);
        setenv("SIMUNIT_SPEED", "1000000", 1);
        CopyNewUnit(Path());
    }
};
inline const OwnUnit ownUnit;
