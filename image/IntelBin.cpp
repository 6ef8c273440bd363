#include "IntelBin.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "Hex.h"
#include "OutputFile.h"
#include "TSString.h"
#include "TSStringList.h"
#include "UniqueFd.h"

namespace {

constexpr char kUpperAddressHead[] = ":02000004";
constexpr char kDataType[] = "00";

// Where the fields of a record stand in its text.
constexpr int kCountAt = 1;
constexpr int kTypeAt = 7;
constexpr int kDataAt = 9;

constexpr std::size_t kLargestCount = 255;
constexpr std::size_t kBinaryHeadSize = 2;

constexpr std::size_t kRecordSize = 32;  // data bytes of a record that is written
constexpr std::uint32_t kPageMask = 0xFFFF;

enum RecordType : unsigned char { Data = 0, EndOfFile = 1, UpperAddress = 4 };

bool BeginsWith(const char* text, const char* head)
{
    return std::strncmp(text, head, std::strlen(head)) == 0;
}

// The field of `digits` hex digits that begins at `position`; 0 where the line has ended before.
unsigned Field(const TSString& line, int position, int digits)
{
    return position < line.Length() ? HexToUInt(line.c_str() + position, digits) : 0;
}

unsigned char ByteField(const TSString& line, int position)
{
    return static_cast<unsigned char>(Field(line, position, 2));
}

bool WriteBinaryHead(int output, const TSString& line)
{
    const unsigned upper = Field(line, kDataAt, 4);
    const unsigned char head[kBinaryHeadSize] = {static_cast<unsigned char>(upper),
                                                 static_cast<unsigned char>(upper >> 8U)};
    return WriteWhole(output, head, sizeof(head));
}

bool IsData(const TSString& line)
{
    return line.Length() > kTypeAt && BeginsWith(line.c_str() + kTypeAt, kDataType);
}

bool WriteBinaryData(int output, const TSString& line)
{
    unsigned char data[kLargestCount];
    const std::size_t count = ByteField(line, kCountAt);
    int position = kDataAt;
    for (std::size_t i = 0; i < count; ++i) {
        data[i] = ByteField(line, position);
        position += 2;
    }
    return WriteWhole(output, data, count);
}

// Builds the text of one record, with its checksum as it grows.
class RecordText {
public:
    void Add(unsigned byte)
    {
        const auto value = static_cast<unsigned char>(byte);
        CharToHex(value, text + length);
        length += 2;
        sum += value;
    }
    void End()
    {
        Add(0U - sum);
        text[length++] = '\r';
        text[length++] = '\n';
    }
    bool Write(int output) const { return WriteWhole(output, text, length); }

private:
    static constexpr std::size_t kBytesAround = 5;  // count, address, type and checksum
    char text[1 + 2 * (kBytesAround + kRecordSize) + 2] = ":";
    std::size_t length = 1;
    unsigned sum = 0;
};

// `count` is at most 32.
bool WriteRecord(int output, RecordType type, std::uint32_t address, const unsigned char* data,
                 std::size_t count)
{
    RecordText record;
    record.Add(static_cast<unsigned>(count));
    record.Add(address >> 8U);
    record.Add(address);
    record.Add(type);
    for (std::size_t i = 0; i < count; ++i)
        record.Add(data[i]);
    record.End();
    return record.Write(output);
}

// Fills the buffer, or gives what is left of the file; -1 when a read fails. A read may bring less
// than there is, and a shorter record in the middle would move all behind it off the 64 KiB
// boundaries at which upper addresses are written.
ssize_t ReadFully(int input, unsigned char* data, std::size_t size)
{
    std::size_t taken = 0;
    while (taken < size) {
        const ssize_t count = read(input, data + taken, size - taken);
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        taken += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(taken);
}

bool WriteUpperAddress(int output, std::uint32_t address)
{
    const unsigned char data[] = {static_cast<unsigned char>(address >> 24U),
                                  static_cast<unsigned char>(address >> 16U)};
    return WriteRecord(output, UpperAddress, 0, data, sizeof(data));
}

}  // namespace

bool Intel2Bin(const char* hexPath, const char* binaryPath)
{
    TSStringList list;
    if (!list.LoadFromFile(hexPath))
        return false;
    const UniqueFd output(CreateOutputFile(binaryPath));
    if (!output)
        return false;

    list.First();
    const auto* first = static_cast<const TSString*>(list.GetNext());
    if (first == nullptr || !BeginsWith(first->c_str(), kUpperAddressHead))
        return false;
    if (!WriteBinaryHead(output.Get(), *first))
        return false;
    while (list.HasNext()) {
        const auto* line = static_cast<const TSString*>(list.GetNext());
        if (IsData(*line) && !WriteBinaryData(output.Get(), *line))
            return false;
    }
    return true;
}

bool Bin2Intel(const char* binaryPath, const char* hexPath)
{
    const UniqueFd input(open(binaryPath, O_RDONLY | O_CLOEXEC));
    unsigned char head[kBinaryHeadSize];
    if (!input || ReadFully(input.Get(), head, sizeof(head)) != static_cast<ssize_t>(sizeof(head)))
        return false;
    const UniqueFd output(CreateOutputFile(hexPath));
    if (!output)
        return false;

    std::uint32_t address = std::uint32_t{head[1]} << 24U | std::uint32_t{head[0]} << 16U;
    for (;;) {
        unsigned char data[kRecordSize];
        const ssize_t got = ReadFully(input.Get(), data, sizeof(data));
        if (got < 0)
            return false;
        if (got == 0)
            return WriteRecord(output.Get(), EndOfFile, 0, nullptr, 0);

        const auto count = static_cast<std::size_t>(got);
        if ((address & kPageMask) == 0 && !WriteUpperAddress(output.Get(), address))
            return false;
        if (!WriteRecord(output.Get(), Data, address & kPageMask, data, count))
            return false;
        address += static_cast<std::uint32_t>(count);
    }
}
