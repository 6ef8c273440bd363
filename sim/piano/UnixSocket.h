#pragma once

#include <string>

#include "Descriptor.h"

// Both replace a file at `path`. On failure the reason is on standard error and the result owns
// nothing. The sockets never block.
Descriptor ListenAt(const std::string& path);
Descriptor BindDatagramAt(const std::string& path);
