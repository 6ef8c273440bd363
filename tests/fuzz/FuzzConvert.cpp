// Expands a compressed file of any content to a binary file and a hex file and back, and sends any
// file through the coder and back.

#include "FuzzInput.h"
#include "IntelBin.h"
#include "RunLength.h"

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size)
{
    // The coder makes one write per byte, so larger inputs are slow.
    const std::string input = std::string(data, size).substr(0, 512);
    const MemoryFile source(input);
    const MemoryFile bin;
    const MemoryFile hex;
    const MemoryFile back;
    // A hex file made from a binary file with data becomes the same binary file again.
    if (RL_Decompress(source.Path(), bin.Path()) && Bin2Intel(bin.Path(), hex.Path()))
        Require(bin.Bytes().size() <= 2 ||
                (Intel2Bin(hex.Path(), back.Path()) && back.Bytes() == bin.Bytes()));
    Require(RL_Compress(source.Path(), hex.Path()) && RL_Decompress(hex.Path(), back.Path()));
    Require(back.Bytes() == input);
    // A hex file of any content must do no harm.
    Intel2Bin(source.Path(), back.Path());
    return 0;
}
