#pragma once

#include <string>

#include "Descriptor.h"

// A socket of the type at `path`, where it replaces a file; one of SOCK_STREAM listens. It never
// blocks. On failure the reason is on standard error and the result owns nothing.
Descriptor OpenSocket(const std::string& path, int type);

// The next connection, which never blocks either; nothing when there is none, or no listener.
Descriptor AcceptFrom(const Descriptor& listener);
