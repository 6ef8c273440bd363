#pragma once

#include <string>

// Reads the parameter flash over a new link to the peer `connecttype`, and restarts the CSP.
// Blocks until that is done or has failed. The records as an Intel HEX file has them; empty when
// the CSP couldn't be read.
std::string ReadFlash(int connecttype);
