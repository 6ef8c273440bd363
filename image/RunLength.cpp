#include "RunLength.h"

#include <cstddef>

#include "FileBytes.h"
#include "OutputFile.h"
#include "UniqueFd.h"

namespace {

constexpr int kNoValue = -1;  // equal to no byte
constexpr unsigned char kLongestRun = 255;
constexpr unsigned char kShortestRun = 3;  // of a byte that isn't the escape byte
constexpr std::size_t kRunItemSize = 3;

constexpr unsigned kGroupBits = 7;
constexpr unsigned kGroupMask = 0x7F;
constexpr unsigned kMoreFollows = 0x80;

bool WriteByte(int output, unsigned char value)
{
    return WriteWhole(output, &value, 1);
}

bool WriteTimes(int output, unsigned char value, unsigned char count)
{
    for (unsigned char i = 0; i < count; ++i) {
        if (!WriteByte(output, value))
            return false;
    }
    return true;
}

bool Load(const char* path, FileBytes& bytes)
{
    const UniqueFd input(OpenToRead(path));
    return input && ReadWholeFile(input.Get(), bytes);
}

// The run that has been seen last, not yet written.
struct Run {
    int value = kNoValue;
    unsigned char length = 0;

    bool Flush(int output) const
    {
        return flush(output, static_cast<unsigned char>(value), length);
    }
};

bool Code(int output, const FileBytes& bytes)
{
    Run run;
    for (std::size_t i = 0; i < bytes.size; ++i) {
        const unsigned char byte = bytes.data[i];
        if (byte != run.value) {
            if (!run.Flush(output))
                return false;
            run = {byte, 1};
        } else if (++run.length == kLongestRun) {
            if (!run.Flush(output))
                return false;
            run = {};
        }
    }
    return run.Flush(output);
}

bool Expand(int output, const FileBytes& bytes)
{
    const unsigned char* at = bytes.data.get();
    const unsigned char* const end = at + bytes.size;
    while (at != end) {
        const bool isRun = *at == escape;
        const std::size_t size = isRun ? kRunItemSize : 1;
        if (static_cast<std::size_t>(end - at) < size)
            return false;
        if (!(isRun ? WriteTimes(output, at[1], at[2]) : WriteByte(output, *at)))
            return false;
        at += size;
    }
    return true;
}

}  // namespace

bool flush(int output, unsigned char value, unsigned char length)
{
    if (length == 0)
        return true;
    if (value != escape && length < kShortestRun)
        return WriteTimes(output, value, length);
    return WriteByte(output, escape) && WriteByte(output, value) && WriteByte(output, length);
}

int WriteCount(int output, unsigned long value)
{
    unsigned shift = 0;
    while (value >> shift > kGroupMask)
        shift += kGroupBits;
    for (; shift > 0; shift -= kGroupBits) {
        const unsigned long group = value >> shift & kGroupMask;
        if (!WriteByte(output, static_cast<unsigned char>(group | kMoreFollows)))
            return -1;
    }
    return WriteByte(output, static_cast<unsigned char>(value & kGroupMask)) ? 0 : -1;
}

bool RL_Compress(const char* inputPath, const char* outputPath)
{
    FileBytes bytes;
    if (!Load(inputPath, bytes))
        return false;
    const UniqueFd output(CreateOutputFile(outputPath));
    return output && Code(output.Get(), bytes);
}

bool RL_Decompress(const char* inputPath, const char* outputPath)
{
    FileBytes bytes;
    if (!Load(inputPath, bytes))
        return false;
    const UniqueFd output(CreateOutputFile(outputPath));
    return output && Expand(output.Get(), bytes);
}
