#pragma once

#include <string>

// Reads the parameter flash over a new link to the peer `connecttype`, and restarts the CSP.
// Blocks until that is done or has failed.
struct FlashReading {
    std::string text;      // the records as an Intel HEX file has them; empty after a failure
    int restartError = 0;  // errno of the power device; 0 when the CSP was restarted
};
FlashReading ReadFlash(int connecttype);
