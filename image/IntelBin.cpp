#include "IntelBin.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <unistd.h>

#include "FileBytes.h"
#include "Hex.h"
#include "HexFormat.h"
#include "HexRecord.h"
#include "OutputFile.h"
#include "TSString.h"
#include "TSStringList.h"
#include "UniqueFd.h"

namespace {

constexpr std::string_view kDataType = "00";

constexpr unsigned kRecordSize = 32;  // data bytes of a record that is written
constexpr std::uint32_t kPageMask = 0xFFFF;

unsigned char LowByte(std::uint32_t value)
{
    return value & 0xFFU;
}

// True when the line has `text` at `position`, where a short line may not reach.
bool Has(std::string_view line, std::size_t position, std::string_view text)
{
    return position < line.size() && line.substr(position, text.size()) == text;
}

// The field of `digits` hex digits that begins at `position`; 0 where the line has ended before, or
// ends inside the field, with the NUL that follows it.
// Digits of either case count, unlike in an image, so the reader of HexRecord.h won't do.
unsigned Field(std::string_view line, std::size_t position, int digits)
{
    return position < line.size() ? HexToUInt(line.data() + position, digits) : 0;
}

bool WriteBinaryHead(int output, std::string_view line)
{
    const unsigned upper = Field(line, HexRecord::kDataAt, 2 * kBinaryHeadSize);
    const unsigned char head[kBinaryHeadSize] = {LowByte(upper), LowByte(upper >> 8U)};
    return WriteWhole(output, head, sizeof(head));
}

// Bytes that the line lacks by its count become 0.
bool WriteBinaryData(int output, std::string_view line)
{
    // Two digits make no count that is larger.
    unsigned char data[HexRecord::kLargestCount];
    const unsigned count = Field(line, HexRecord::kCountAt, 2);
    std::size_t position = HexRecord::kDataAt;
    for (unsigned i = 0; i < count; ++i) {
        data[i] = LowByte(Field(line, position, 2));
        position += 2;
    }
    return WriteWhole(output, data, count);
}

// Builds the text of one record, with its checksum as it grows.
class RecordText {
public:
    void Add(std::uint32_t byte)
    {
        CharToHex(LowByte(byte), text + length);
        length += 2;
        sum += byte;
    }
    void End()
    {
        Add(0U - sum);
        text[length++] = kCr;
        text[length++] = kLf;
    }
    bool Write(int output) const { return WriteWhole(output, text, length); }

private:
    static constexpr unsigned kBytesAround = 5;                 // count, address, type and checksum
    char text[1 + 2 * (kBytesAround + kRecordSize) + 2] = ":";  // up to `length`, without a NUL
    std::size_t length = 1;                                     // characters
    std::uint32_t sum = 0;  // of all bytes so far; the low 8 bits count
};

// `count` is at most 32.
bool WriteRecord(int output, unsigned char type, std::uint32_t address, const unsigned char* data,
                 unsigned count)
{
    RecordText record;
    record.Add(count);
    record.Add(address >> 8U);
    record.Add(address);
    record.Add(type);
    for (unsigned i = 0; i < count; ++i)
        record.Add(data[i]);
    record.End();
    return record.Write(output);
}

bool WriteUpperAddress(int output, std::uint32_t address)
{
    const unsigned char data[] = {LowByte(address >> 24U), LowByte(address >> 16U)};
    return WriteRecord(output, HexRecord::kUpperAddress, 0, data, sizeof(data));
}

// Data of a binary file that goes into one record.
struct Piece {
    unsigned char data[kRecordSize] = {};  // the first `count` bytes are of the file
    unsigned count = 0;                    // 0 at the end of the file

    // Takes `size` bytes, or what is left of the file; false when a read fails. A read may bring
    // less than there is, and a shorter record in the middle would move all that follows off the
    // 64 KiB boundaries at which upper addresses are written.
    bool Read(int input, unsigned size)
    {
        count = 0;
        while (count < size) {
            const ssize_t taken = read(input, data + count, size - count);
            if (taken <= 0)
                return taken == 0;
            count += static_cast<unsigned>(taken);
        }
        return true;
    }
};

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
    const TSString* first = list.NextString();
    if (first == nullptr || !Has(first->c_str(), 0, kUpperAddressHead))
        return false;
    if (!WriteBinaryHead(output.Get(), first->c_str()))
        return false;
    // Later upper addresses are left out: the way back makes them anew from the count of bytes.
    while (const TSString* next = list.NextString()) {
        const std::string_view line(next->c_str());
        if (Has(line, HexRecord::kTypeAt, kDataType) && !WriteBinaryData(output.Get(), line))
            return false;
    }
    return true;
}

bool Bin2Intel(const char* binaryPath, const char* hexPath, AtPath old)
{
    const UniqueFd input(OpenToRead(binaryPath));
    Piece piece;
    if (!input || !piece.Read(input.Get(), kBinaryHeadSize) || piece.count < kBinaryHeadSize)
        return false;
    const UniqueFd output(CreateOutputFile(hexPath, kOwnersOnly, old));
    if (!output)
        return false;

    // The low 16 bits aren't kept, so the data begins on a 64 KiB boundary.
    std::uint32_t address = (piece.data[1] * 0x100U + piece.data[0]) << 16U;
    while (piece.Read(input.Get(), kRecordSize)) {
        // Asked first: a file that ends on a boundary gets no upper address for the page after it.
        if (piece.count == 0)
            return WriteRecord(output.Get(), HexRecord::kEndOfFile, 0, nullptr, 0);
        if ((address & kPageMask) == 0 && !WriteUpperAddress(output.Get(), address))
            return false;
        if (!WriteRecord(output.Get(), HexRecord::kData, address & kPageMask, piece.data,
                         piece.count))
            return false;
        address += piece.count;
    }
    return false;  // a read has failed, and the output has no end record
}
