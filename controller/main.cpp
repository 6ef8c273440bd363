// The controller's side of the unit as a command-line tool, and a technician's tool for image
// files. Ends with a status that a script can use.

#include <malloc.h>

#include "CommandLine.h"

int main(int argc, char** argv)
{
    // Blocks as large as an image go back to the system when they are freed.
    static_cast<void>(mallopt(M_MMAP_THRESHOLD, 0x20000));
    return static_cast<int>(RunCommandLine({argv + 1, argv + argc}));
}
