#include "Options.h"
#include "SimPiano.h"

#include <cstdio>

int main(int argc, char** argv)
{
    Options options;
    const std::string complaint = options.Parse({argv + 1, argv + argc});
    if (options.help) {
        std::fputs(Options::HelpText().c_str(), stdout);
        return 0;
    }
    if (!complaint.empty() || options.root.empty()) {
        std::fprintf(stderr, "simpiano: %s; see --help\n",
                     complaint.empty() ? "--root is missing" : complaint.c_str());
        return 2;
    }

    SimPiano piano(options);
    if (!piano.Open())
        return 2;
    std::puts("ready");
    std::fflush(stdout);
    return piano.Run();
}
