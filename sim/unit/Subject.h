#pragma once

#include "BoundedText.h"

// What a call was made on, as journals and lists name it: a path below the root, which the files of
// the medium have in the medium's own folder; the path of a UNIX connection's peer; "tcp" for a
// socket of the machine's network; "socket" for one that isn't connected; "-" for nothing.
BoundedText SubjectName(int descriptor);
BoundedText SubjectName(const char* path);
