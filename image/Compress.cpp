#include "Compress.h"

#include "IntelBin.h"
#include "Path.h"
#include "RunLength.h"
#include "TSString.h"

namespace {

// On the unit's own disk, as the hex file is, and never on the slow medium.
TSString BinaryBeside(const char* hexPath)
{
    return ChangeFileExtSX(hexPath, ".bin");
}

}  // namespace

bool Compress(const char* hexPath, const char* compressedPath)
{
    const TSString binary = BinaryBeside(hexPath);
    return Intel2Bin(hexPath, binary.c_str()) && RL_Compress(binary.c_str(), compressedPath);
}

bool Decompress(const char* compressedPath, const char* hexPath)
{
    const TSString binary = BinaryBeside(hexPath);
    return RL_Decompress(compressedPath, binary.c_str()) && Bin2Intel(binary.c_str(), hexPath);
}
