#pragma once

#include <string>

// Reads the parameter flash into the file over a link of its own to the peer `connecttype`, and
// restarts the CSP. Blocks until that is done or has failed. False when the CSP couldn't be read;
// whether the file could be written shows in the file alone.
bool ReadFlash(int connecttype, const std::string& file);
