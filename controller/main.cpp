// The controller's side of the unit as a command-line tool, and a technician's tool for image
// files. Ends with a status that a script can use.

#include "CommandLine.h"

int main(int argc, char** argv)
{
    return static_cast<int>(RunCommandLine({argv + 1, argv + argc}));
}
