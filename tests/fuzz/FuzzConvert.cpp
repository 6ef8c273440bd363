// A compressed file of any content becomes a binary file and a hex file, and any file survives the
// round trip through the coder.

#include "FuzzInput.h"
#include "IntelBin.h"
#include "RunLength.h"
#include "THexFile.h"

static constexpr std::size_t kMostInput = 512;  // one write a byte makes larger ones slow

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size)
{
    const std::string input = std::string(data, size).substr(0, kMostInput);
    const MemoryFile source(input);
    const MemoryFile bin;
    const MemoryFile hex;
    const MemoryFile back;
    if (RL_Decompress(source.Path(), bin.Path()) && Bin2Intel(bin.Path(), hex.Path())) {
        Require(THexFile().LoadFromFile(hex.Path()));
        // What was made from a binary file becomes the same binary file again.
        Require(bin.Bytes().size() <= 2 ||
                (Intel2Bin(hex.Path(), back.Path()) && back.Bytes() == bin.Bytes()));
    }
    const MemoryFile coded;
    const MemoryFile plain;
    Require(RL_Compress(source.Path(), coded.Path()));
    Require(RL_Decompress(coded.Path(), plain.Path()));
    Require(plain.Bytes() == input);
    // A hex file of any content must at least do no harm.
    Intel2Bin(source.Path(), back.Path());
    return 0;
}
