#include "RunLength.h"

#include <cstddef>

#include "FileBytes.h"
#include "OutputFile.h"
#include "UniqueFd.h"

namespace {

constexpr unsigned char kLongestRun = 255;
constexpr unsigned char kShortestRun = 3;  // of a byte that isn't the escape byte

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

// The run that the coder is in, not yet written.
struct Run {
    unsigned char value = 0;
    unsigned char length = 0;  // bytes; 0 before the first byte and after a full run

    bool Flush(int output) const { return flush(output, value, length); }
};

// A full run ends without a value, so an equal byte that follows begins a run of its own.
bool Code(int output, const FileBytes& bytes)
{
    Run run;
    for (std::size_t i = 0; i < bytes.size; ++i) {
        const unsigned char byte = bytes.data[i];
        if (run.length == 0 || byte != run.value) {
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

// An escape byte without a value and a count after it can only come from a file that is cut off.
bool Expand(int output, const FileBytes& bytes)
{
    const unsigned char* at = bytes.data.get();
    const unsigned char* const end = at + bytes.size;
    while (at != end) {
        const bool isRun = *at == escape;
        const std::ptrdiff_t size = isRun ? kRunItemSize : 1;
        if (end - at < size)
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
    // A run item of two bytes would be longer than they are. The escape byte can't stand alone.
    if (value != escape && length < kShortestRun)
        return WriteTimes(output, value, length);
    return WriteByte(output, escape) && WriteByte(output, value) && WriteByte(output, length);
}

int WriteCount(int output, unsigned long value)
{
    // The first group to write is the highest that isn't 0.
    unsigned shift = 0;
    while (value >> shift > kGroupMask)
        shift += kGroupBits;
    for (; shift > 0; shift -= kGroupBits) {
        const unsigned char group = value >> shift & kGroupMask;
        if (!WriteByte(output, group | kMoreFollows))
            return -1;
    }
    return WriteByte(output, value & kGroupMask) ? 0 : -1;
}

bool RL_Compress(const char* inputPath, const char* outputPath)
{
    FileBytes bytes;
    if (!ReadWholeFile(inputPath, bytes))
        return false;
    const UniqueFd output(CreateOutputFile(outputPath));
    return output && Code(output.Get(), bytes);
}

bool RL_Decompress(const char* inputPath, const char* outputPath, AtPath old)
{
    FileBytes bytes;
    if (!ReadWholeFile(inputPath, bytes))
        return false;
    const UniqueFd output(CreateOutputFile(outputPath, kOwnersOnly, old));
    return output && Expand(output.Get(), bytes);
}
