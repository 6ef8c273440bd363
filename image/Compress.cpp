#include "Compress.h"

#include "HexFormat.h"
#include "IntelBin.h"
#include "Path.h"
#include "RunLength.h"
#include "TSString.h"

namespace {

// On the unit's own disk, as the hex file is, and never on the slow medium. It isn't deleted: the
// next run overwrites it.
TSString BinaryPath(const char* hexPath)
{
    return ChangeFileExtSX(hexPath, ".bin");
}

}  // namespace

bool Compress(const char* hexPath, const char* compressedPath)
{
    const TSString binary = BinaryPath(hexPath);
    return Intel2Bin(hexPath, binary.c_str()) && RL_Compress(binary.c_str(), compressedPath);
}

bool Decompress(const char* compressedPath, const char* hexPath)
{
    return Decompress(compressedPath, hexPath, AtPath::Emptied);
}

bool Decompress(const char* compressedPath, const char* hexPath, AtPath old)
{
    const TSString binary = BinaryPath(hexPath);
    return RL_Decompress(compressedPath, binary.c_str(), old) &&
           Bin2Intel(binary.c_str(), hexPath, old);
}

std::optional<std::string> CompressImage(std::string_view hexText)
{
    const std::optional<std::string> binary = BinaryFromHex(hexText);
    if (!binary)
        return std::nullopt;
    return RunLengthCode(*binary);
}

std::optional<std::string> ExpandImage(std::string_view compressed)
{
    const std::optional<std::string> binary =
        RunLengthExpand(compressed, kBinaryHeadSize + kFlashSize);
    return binary ? HexFromBinary(*binary) : std::nullopt;
}
