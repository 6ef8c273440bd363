#include "IntelBin.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <unistd.h>

#include "ByteSink.h"
#include "FileBytes.h"
#include "Hex.h"
#include "HexFormat.h"
#include "HexRecord.h"
#include "OutputFile.h"
#include "TSString.h"
#include "TSStringList.h"
#include "TextFile.h"
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
// ends inside the field.
// Digits of either case count, unlike in an image, so the reader of HexRecord.h won't do.
unsigned Field(std::string_view line, std::size_t position, int digits)
{
    return position + digits <= line.size() ? HexToUInt(line.data() + position, digits) : 0;
}

bool WriteBinaryHead(ByteSink& output, std::string_view line)
{
    const unsigned upper = Field(line, HexRecord::kDataAt, 2 * kBinaryHeadSize);
    const unsigned char head[kBinaryHeadSize] = {LowByte(upper), LowByte(upper >> 8U)};
    return output.Write(head, sizeof(head));
}

// Bytes that the line lacks by its count become 0.
bool WriteBinaryData(ByteSink& output, std::string_view line)
{
    // Two digits make no count that is larger.
    unsigned char data[HexRecord::kLargestCount];
    const unsigned count = Field(line, HexRecord::kCountAt, 2);
    std::size_t position = HexRecord::kDataAt;
    for (unsigned i = 0; i < count; ++i) {
        data[i] = LowByte(Field(line, position, 2));
        position += 2;
    }
    return output.Write(data, count);
}

// The first line has the upper address. Later ones are left out: the way back makes them anew from
// the count of bytes.
bool WriteBinaryFirst(ByteSink& output, std::string_view line)
{
    return Has(line, 0, kUpperAddressHead) && WriteBinaryHead(output, line);
}

bool WriteBinaryNext(ByteSink& output, std::string_view line)
{
    return !Has(line, HexRecord::kTypeAt, kDataType) || WriteBinaryData(output, line);
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
    bool Write(ByteSink& output) const { return output.Write(text, length); }

private:
    static constexpr unsigned kBytesAround = 5;                 // count, address, type and checksum
    char text[1 + 2 * (kBytesAround + kRecordSize) + 2] = ":";  // up to `length`, without a NUL
    std::size_t length = 1;                                     // characters
    std::uint32_t sum = 0;  // of all bytes so far; the low 8 bits count
};

// Writes the records that a binary file becomes.
class HexWriter {
public:
    // The low 16 bits of the address aren't kept, so the data begins on a 64 KiB boundary.
    HexWriter(ByteSink& target, const unsigned char* head)
        : output(target), address((head[1] * 0x100U + head[0]) << 16U)
    {}

    // Writes up to 32 bytes of data, which no boundary divides.
    bool Add(const unsigned char* data, unsigned count)
    {
        if ((address & kPageMask) == 0 && !WriteUpperAddress())
            return false;
        const std::uint32_t place = address & kPageMask;
        address += count;
        return WriteRecord(HexRecord::kData, place, data, count);
    }

    bool End() { return WriteRecord(HexRecord::kEndOfFile, 0, nullptr, 0); }

private:
    bool WriteUpperAddress()
    {
        const unsigned char data[] = {LowByte(address >> 24U), LowByte(address >> 16U)};
        return WriteRecord(HexRecord::kUpperAddress, 0, data, sizeof(data));
    }
    bool WriteRecord(unsigned char type, std::uint32_t place, const unsigned char* data,
                     unsigned count)
    {
        RecordText record;
        record.Add(count);
        record.Add(place >> 8U);
        record.Add(place);
        record.Add(type);
        for (unsigned i = 0; i < count; ++i)
            record.Add(data[i]);
        record.End();
        return record.Write(output);
    }

    ByteSink& output;
    std::uint32_t address;  // of the next byte
};

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

// Cuts off what a reader of the file form gets at once: a line with its end, or a full piece of a
// longer one, up to its first NUL.
std::string_view TakePiece(std::string_view& text)
{
    constexpr std::size_t kLongest = PieceReader::kPieceSize - 1;
    std::string_view piece = text.substr(0, kLongest);
    const std::size_t end = piece.find(kLf);
    if (end != std::string_view::npos)
        piece = piece.substr(0, end + 1);
    text.remove_prefix(piece.size());
    return piece.substr(0, piece.find('\0'));
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

    FileSink sink(output.Get());
    list.First();
    const TSString* const first = list.NextString();
    if (first == nullptr || !WriteBinaryFirst(sink, first->c_str()))
        return false;
    while (const TSString* next = list.NextString()) {
        if (!WriteBinaryNext(sink, next->c_str()))
            return false;
    }
    return true;
}

bool Bin2Intel(const char* binaryPath, const char* hexPath)
{
    return Bin2Intel(binaryPath, hexPath, AtPath::Emptied);
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

    FileSink sink(output.Get());
    HexWriter writer(sink, piece.data);
    while (piece.Read(input.Get(), kRecordSize)) {
        // Asked first: a file that ends on a boundary gets no upper address for the page after it.
        if (piece.count == 0)
            return writer.End();
        if (!writer.Add(piece.data, piece.count))
            return false;
    }
    return false;  // a read has failed, and the output has no end record
}

std::optional<std::string> BinaryFromHex(std::string_view hexText)
{
    StringSink binary;
    binary.bytes.reserve(hexText.size() / 2);
    if (!WriteBinaryFirst(binary, TakePiece(hexText)))
        return std::nullopt;
    while (!hexText.empty())
        static_cast<void>(WriteBinaryNext(binary, TakePiece(hexText)));  // a string takes all
    return std::move(binary.bytes);
}

std::optional<std::string> HexFromBinary(std::string_view binary)
{
    if (binary.size() < kBinaryHeadSize)
        return std::nullopt;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(binary.data());
    StringSink hex;
    hex.bytes.reserve(binary.size() * 5 / 2);  // a record of 77 characters has 32 bytes
    HexWriter writer(hex, bytes);
    bool isWritten = true;
    for (std::size_t at = kBinaryHeadSize; isWritten && at < binary.size(); at += kRecordSize) {
        const std::size_t count = std::min<std::size_t>(binary.size() - at, kRecordSize);
        isWritten = writer.Add(bytes + at, static_cast<unsigned>(count));
    }
    if (!isWritten || !writer.End())
        return std::nullopt;
    return std::move(hex.bytes);
}
