#pragma once

#include <cstdlib>

#include "TempDir.h"
#include "Unit.h"

// A simulated unit for a test program that links its library: the product's fixed paths lie below
// Path(), and its sleeps are over at once. There is one, from before the first test to the end.
class OwnUnit : public TempDir {
public:
    OwnUnit()
    {
        // The library reads its settings with the first call that it looks at, so none comes
        // before.
        setenv("SIMUNIT_ROOT", Path().c_str(), 1);
        setenv("SIMUNIT_SPEED", "1000000", 1);
        CopyNewUnit(Path());
    }
};
inline const OwnUnit ownUnit;
