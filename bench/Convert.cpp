// Makes one conversion of an image file, to be compared as a process with other tools.
//
//    diag_convert Intel2Bin|Bin2Intel|RL_Compress|RL_Decompress INPUT OUTPUT

#include <cstdio>
#include <cstring>

#include "IntelBin.h"
#include "RunLength.h"

namespace {

struct Conversion {
    const char* name;
    bool (*convert)(const char* input, const char* output);
};
constexpr Conversion kConversions[] = {
    {"Intel2Bin", Intel2Bin},
    {"Bin2Intel", Bin2Intel},
    {"RL_Compress", RL_Compress},
    {"RL_Decompress", RL_Decompress},
};

}  // namespace

int main(int argc, char** argv)
{
    for (const Conversion& each : kConversions) {
        if (argc == 4 && std::strcmp(argv[1], each.name) == 0)
            return each.convert(argv[2], argv[3]) ? 0 : 1;
    }
    std::fprintf(stderr, "diag_convert: no such conversion\n");
    return 2;
}
