#pragma once

#include "BoundedText.h"

// The object of a call, as journals and lists name it: a path below the root, which for files of
// the medium is in the medium's folder; the path of a UNIX connection's peer; "tcp" for a socket of
// the machine's network; "socket" for one that isn't connected; "-" for nothing.
BoundedText SubjectName(int descriptor);
BoundedText SubjectName(const char* path);
