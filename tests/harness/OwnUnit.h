#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include "Unit.h"

// A simulated unit for a test program that links its library: the product's fixed paths lie below
// Path(), and its sleeps are over at once. There is one, from before the first test to the end.
class OwnUnit {
public:
    OwnUnit()
    {
        // The library reads its settings with the first call that it looks at, so none comes
        // before.
        if (mkdtemp(root) == nullptr)
            throw std::runtime_error("no directory for a unit");
        setenv("SIMUNIT_ROOT", root, 1);
        setenv("SIMUNIT_SPEED", "1000000", 1);
        CopyNewUnit(root);
    }
    ~OwnUnit()
    {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    OwnUnit(const OwnUnit&) = delete;
    OwnUnit& operator=(const OwnUnit&) = delete;

    std::string Path(const std::string& name) const { return std::string(root) + "/" + name; }

private:
    char root[sizeof("/tmp/diag-XXXXXX")] = "/tmp/diag-XXXXXX";
};
inline const OwnUnit ownUnit;
