// Expands a compressed file of any content to a binary file and a hex file and back, and sends any
// file through the coder and back; each conversion between files and in memory.

#include <optional>
#include <string>

#include "FuzzInput.h"
#include "IntelBin.h"
#include "RunLength.h"

namespace {

// What a conversion in memory must return as well.
std::optional<std::string> Result(bool isDone, const MemoryFile& file)
{
    return isDone ? std::optional(file.Bytes()) : std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size)
{
    // The coder makes one write per byte, so larger inputs are slow.
    const std::string input = std::string(data, size).substr(0, 512);
    const MemoryFile source(input);
    const MemoryFile bin;
    const MemoryFile hex;
    const MemoryFile back;
    // A hex file made from a binary file with data becomes the same binary file again.
    const bool isExpanded = RL_Decompress(source.Path(), bin.Path());
    Require(RunLengthExpand(input, std::string::npos) == Result(isExpanded, bin));
    if (isExpanded && Bin2Intel(bin.Path(), hex.Path()))
        Require(bin.Bytes().size() <= 2 ||
                (Intel2Bin(hex.Path(), back.Path()) && back.Bytes() == bin.Bytes()));
    Require(RL_Compress(source.Path(), hex.Path()) && RL_Decompress(hex.Path(), back.Path()));
    Require(back.Bytes() == input);
    Require(RunLengthCode(input) == hex.Bytes());
    // A hex file of any content must do no harm.
    const bool isBinary = Intel2Bin(source.Path(), back.Path());
    Require(BinaryFromHex(input) == Result(isBinary, back));
    Require(HexFromBinary(input) == Result(Bin2Intel(source.Path(), hex.Path()), hex));
    return 0;
}
