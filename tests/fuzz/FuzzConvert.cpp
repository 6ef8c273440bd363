// A compressed file of any content becomes a binary file and a hex file, and any file survives the
// round trip through the coder.

#include <algorithm>

#include "FuzzInput.h"
#include "IntelBin.h"
#include "RunLength.h"
#include "THexFile.h"

static constexpr std::size_t kMostInput = 512;  // one write a byte makes larger ones slow

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    size = std::min(size, kMostInput);
    const MemoryFile source(data, size);
    const MemoryFile bin;
    const MemoryFile hex;
    const MemoryFile back;
    if (RL_Decompress(source.Path().c_str(), bin.Path().c_str()) &&
        Bin2Intel(bin.Path().c_str(), hex.Path().c_str())) {
        THexFile image;
        Require(image.LoadFromFile(hex.Path().c_str()));
        const std::string bytes = bin.Bytes();
        if (bytes.size() > 2) {
            // What was made from a binary file gives the same binary file again.
            Require(Intel2Bin(hex.Path().c_str(), back.Path().c_str()));
            Require(back.Bytes() == bytes);
        }
    }
    const MemoryFile coded;
    const MemoryFile plain;
    Require(RL_Compress(source.Path().c_str(), coded.Path().c_str()));
    Require(RL_Decompress(coded.Path().c_str(), plain.Path().c_str()));
    Require(plain.Bytes() == source.Bytes());
    // A hex file of any content must at least do no harm.
    Intel2Bin(source.Path().c_str(), back.Path().c_str());
    return 0;
}
