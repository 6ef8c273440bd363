#include "RunLength.h"

#include <utility>

#include "ByteSink.h"
#include "FileBytes.h"
#include "OutputFile.h"
#include "UniqueFd.h"

namespace {

constexpr unsigned char kLongestRun = 255;
constexpr unsigned char kShortestRun = 3;  // of a byte that isn't the escape byte

constexpr unsigned kGroupBits = 7;
constexpr unsigned kGroupMask = 0x7F;
constexpr unsigned kMoreFollows = 0x80;

bool WriteByte(ByteSink& output, unsigned char value)
{
    return output.Write(&value, 1);
}

bool WriteTimes(ByteSink& output, unsigned char value, unsigned char count)
{
    for (unsigned char i = 0; i < count; ++i) {
        if (!WriteByte(output, value))
            return false;
    }
    return true;
}

bool WriteRun(ByteSink& output, unsigned char value, unsigned char length)
{
    if (length == 0)
        return true;
    // A run item of two bytes would be longer than they are. The escape byte can't stand alone.
    if (value != escape && length < kShortestRun)
        return WriteTimes(output, value, length);
    return WriteByte(output, escape) && WriteByte(output, value) && WriteByte(output, length);
}

// The run that the coder is in, not yet written.
struct Run {
    unsigned char value = 0;
    unsigned char length = 0;  // bytes; 0 before the first byte and after a full run

    bool Flush(ByteSink& output) const { return WriteRun(output, value, length); }
};

// A full run ends without a value, so an equal byte that follows begins a run of its own.
bool Code(ByteSink& output, std::string_view bytes)
{
    Run run;
    for (const unsigned char byte : bytes) {
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
bool Expand(ByteSink& output, std::string_view bytes)
{
    while (!bytes.empty()) {
        const unsigned char first = bytes[0];
        const bool isRun = first == escape;
        const std::size_t size = isRun ? kRunItemSize : 1;
        if (bytes.size() < size)
            return false;
        if (!(isRun ? WriteTimes(output, bytes[1], bytes[2]) : WriteByte(output, first)))
            return false;
        bytes.remove_prefix(size);
    }
    return true;
}

// Between two files, all of the input read before the output is touched.
bool Convert(const char* inputPath, const char* outputPath,
             bool (*convert)(ByteSink& output, std::string_view bytes),
             AtPath old = AtPath::Emptied)
{
    FileBytes bytes;
    if (!ReadWholeFile(inputPath, bytes))
        return false;
    const UniqueFd output(CreateOutputFile(outputPath, kOwnersOnly, old));
    FileSink sink(output.Get());
    return output && convert(sink, bytes.Text());
}

}  // namespace

bool flush(int output, unsigned char value, unsigned char length)
{
    FileSink sink(output);
    return WriteRun(sink, value, length);
}

int WriteCount(int output, unsigned long value)
{
    FileSink sink(output);
    // The first group to write is the highest that isn't 0.
    unsigned shift = 0;
    while (value >> shift > kGroupMask)
        shift += kGroupBits;
    for (; shift > 0; shift -= kGroupBits) {
        const unsigned char group = value >> shift & kGroupMask;
        if (!WriteByte(sink, group | kMoreFollows))
            return -1;
    }
    return WriteByte(sink, value & kGroupMask) ? 0 : -1;
}

bool RL_Compress(const char* inputPath, const char* outputPath)
{
    return Convert(inputPath, outputPath, Code);
}

bool RL_Decompress(const char* inputPath, const char* outputPath)
{
    return RL_Decompress(inputPath, outputPath, AtPath::Emptied);
}

bool RL_Decompress(const char* inputPath, const char* outputPath, AtPath old)
{
    return Convert(inputPath, outputPath, Expand, old);
}

std::string RunLengthCode(std::string_view bytes)
{
    StringSink coded;
    coded.bytes.reserve(bytes.size());
    // A string without a limit takes every byte.
    static_cast<void>(Code(coded, bytes));
    return std::move(coded.bytes);
}

std::optional<std::string> RunLengthExpand(std::string_view coded, std::size_t most)
{
    StringSink plain(most);
    if (!Expand(plain, coded))
        return std::nullopt;
    return std::move(plain.bytes);
}
