#include "THexFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>

#include "FileBytes.h"
#include "Hex.h"
#include "TSString.h"
#include "TSStringList.h"
#include "UniqueFd.h"

namespace {

constexpr char kCr = '\r';
constexpr char kLf = '\n';
constexpr std::int32_t kLongestLine = 80;  // bytes, the line end included

constexpr std::uint32_t kVersionAddress = 0x90040400;

// Where the fields of a record stand.
constexpr std::size_t kCountAt = 1;
constexpr std::size_t kAddressHighAt = 3;
constexpr std::size_t kAddressLowAt = 5;
constexpr std::size_t kTypeAt = 7;
constexpr std::size_t kDataAt = 9;

constexpr std::size_t kChecksumBytes = 1;
constexpr std::size_t kUpperAddressBytes = 2;
constexpr std::size_t kUpperAddressEnd = kDataAt + 2 * kUpperAddressBytes;

constexpr unsigned char kDataType = 0;
constexpr unsigned char kEndType = 1;
constexpr unsigned char kUpperAddressType = 4;

unsigned char CountOf(const char* record)
{
    return HexToChar(record + kCountAt);
}

unsigned char TypeOf(const char* record)
{
    return HexToChar(record + kTypeAt);
}

unsigned char DataByte(const char* record, std::size_t index)
{
    return HexToChar(record + kDataAt + 2 * index);
}

// Without the line end that may stand behind it.
std::size_t LengthOf(const char* record)
{
    return std::strcspn(record, "\r\n");
}

// True when a record of so many characters has those that its address is made of. Data may be
// missing: whoever sends a row that the CSP will refuse must still find it again.
bool HasAddress(const char* record, std::size_t length)
{
    if (length < kDataAt)
        return false;
    return TypeOf(record) != kUpperAddressType || length >= kUpperAddressEnd;
}

// True when it has the data that its count promises and its checksum, too.
bool IsComplete(const char* record, std::size_t length)
{
    return HasAddress(record, length) &&
           length >= kDataAt + 2 * (std::size_t{CountOf(record)} + kChecksumBytes);
}

std::uint32_t AddressOf(const char* record, std::uint32_t upper)
{
    return upper | std::uint32_t{HexToChar(record + kAddressHighAt)} << 8U |
           HexToChar(record + kAddressLowAt);
}

std::uint32_t UpperAddressOf(const char* record)
{
    return std::uint32_t{DataByte(record, 0)} << 24U | std::uint32_t{DataByte(record, 1)} << 16U;
}

bool IsChecksumGood(const char* record, std::size_t summedData)
{
    unsigned sum = DataByte(record, CountOf(record));
    for (std::size_t at = kCountAt; at < kDataAt; at += 2)
        sum += HexToChar(record + at);
    for (std::size_t i = 0; i < summedData; ++i)
        sum += DataByte(record, i);
    return sum % 0x100 == 0;
}

// The first `sought` from `text` on, or `end`.
const char* Find(const char* text, const char* end, char sought)
{
    const void* const found = std::memchr(text, sought, static_cast<std::size_t>(end - text));
    return found == nullptr ? end : static_cast<const char*>(found);
}

struct LineTable {
    std::int32_t count = 0;
    std::ptrdiff_t longest = 0;  // bytes, the line end included
    const char* end = nullptr;   // behind the last line end
};

LineTable CountLines(const char* text, std::size_t size)
{
    LineTable table;
    table.end = text;
    const char* const textEnd = text + size;
    for (;;) {
        const char* const lf = Find(table.end, textEnd, kLf);
        if (lf == textEnd)
            return table;
        ++table.count;
        table.longest = std::max(table.longest, lf + 1 - table.end);
        table.end = lf + 1;
    }
}

}  // namespace

THexFile::THexFile()
    : baseAddress(0),
      nextAddress(0),
      checkedLines(new TSStringList),
      maxLineLength(0),
      lineCount(0),
      startAddress(0),
      endAddress(0),
      versionText(),
      lines(nullptr)
{}

THexFile::~THexFile()
{
    DropRows();
    delete checkedLines;
}

bool THexFile::LoadFromFile(const char* path)
{
    DropRows();
    startAddress = 0;
    endAddress = 0;
    versionText[0] = '\0';

    const UniqueFd file(open(path, O_RDONLY | kOpenFlags));
    FileBytes bytes;
    if (!file || !ReadWholeFile(file.Get(), bytes))
        return false;

    const auto* text = reinterpret_cast<const char*>(bytes.data.get());
    const LineTable table = CountLines(text, bytes.size);
    if (table.longest > kLongestLine || !MakeRows(table.count, table.longest))
        return false;
    FillRows(text, table.end);
    GetStartEndAddress();
    return true;
}

void THexFile::GetStartEndAddress()
{
    startAddress = 0;
    std::uint32_t upper = 0;
    for (std::int32_t i = 0; i < lineCount; ++i) {
        const char* row = lines[i];
        const bool isText = static_cast<unsigned char>(row[0]) > kCr;
        // No row has a line end, and its plain length is the one that is found faster.
        if (!isText || !HasAddress(row, std::strlen(row)))
            continue;
        switch (TypeOf(row)) {
        case kDataType: ScanData(row, upper); break;
        case kUpperAddressType:
            upper = UpperAddressOf(row);
            if (startAddress == 0)
                startAddress = upper;
            endAddress = upper;
            break;
        default: break;
        }
    }
}

bool THexFile::GetSendedAddress(const char* record, unsigned long* upperAddress,
                                unsigned long* sendedAddress) const
{
    if (!HasAddress(record, LengthOf(record)))
        return false;
    switch (TypeOf(record)) {
    case kDataType:
        *sendedAddress =
            AddressOf(record, static_cast<std::uint32_t>(*upperAddress)) + CountOf(record);
        return false;
    case kUpperAddressType:
        *upperAddress = UpperAddressOf(record);
        *sendedAddress = *upperAddress;
        return true;
    default: return false;
    }
}

int THexFile::CheckIntelHex(const char* record)
{
    if (record[0] != ':')
        return NotARecord;
    if (!IsComplete(record, LengthOf(record)))
        return CutShort;
    switch (TypeOf(record)) {
    case kDataType: return CheckData(record);
    case kEndType: return Accept(record, LastAccepted);  // whatever its checksum
    case kUpperAddressType: return CheckUpperAddress(record);
    default: return UnknownType;
    }
}

bool THexFile::SaveToFile(const char* path)
{
    return checkedLines->SaveToFile(path);
}

void THexFile::Reset()
{
    baseAddress = 0;
    nextAddress = 0;
    checkedLines->Clear();
}

std::uint32_t THexFile::GetNextAddress() const
{
    return nextAddress;
}

void THexFile::DropRows()
{
    if (lines != nullptr)
        std::free(lines[0]);
    std::free(lines);
    lines = nullptr;
    maxLineLength = 0;
    lineCount = 0;
}

// All rows lie in one block, zeroed, so that rows left over at the end are empty. calloc refuses a
// size that overflows, and untouched rows cost no memory, as in a file of nothing but line ends.
bool THexFile::MakeRows(std::int32_t count, std::ptrdiff_t longest)
{
    if (count == 0)
        return true;
    const auto rows = static_cast<std::size_t>(count);
    const auto rowSize = static_cast<std::size_t>(longest) + 1;
    auto* block = static_cast<char*>(std::calloc(rows, rowSize));
    lines = static_cast<char**>(std::calloc(rows, sizeof(*lines)));
    if (block == nullptr || lines == nullptr) {
        std::free(block);
        std::free(lines);
        lines = nullptr;
        return false;
    }
    lines[0] = block;
    for (std::size_t i = 1; i < rows; ++i)
        lines[i] = lines[i - 1] + rowSize;
    maxLineLength = static_cast<std::int32_t>(longest);
    lineCount = count;
    return true;
}

// A row ends at a CR or an LF, and an LF right behind either goes with it. So a lone CR makes one
// row more, and the last rows of the file then find no place. `end` lies behind an LF.
void THexFile::FillRows(const char* text, const char* end)
{
    for (std::int32_t i = 0; i < lineCount && text != end; ++i) {
        const char* const rowEnd = Find(text, Find(text, end, kLf), kCr);
        std::memcpy(lines[i], text, static_cast<std::size_t>(rowEnd - text));
        text = rowEnd + 1;
        if (text != end && *text == kLf)
            ++text;
    }
}

void THexFile::ScanData(const char* record, std::uint32_t upper)
{
    endAddress = AddressOf(record, upper);
    if (endAddress == kVersionAddress)
        TakeVersion(record);
    endAddress += CountOf(record);
}

// Takes the data as text, as far as the row has it.
void THexFile::TakeVersion(const char* record)
{
    const std::size_t present = (std::strlen(record) - kDataAt) / 2;
    const std::size_t count = std::min(present, std::size_t{CountOf(record)});
    for (std::size_t i = 0; i < count; ++i)
        versionText[i] = static_cast<char>(DataByte(record, i));
    versionText[count] = '\0';
}

// The address is tested before the checksum: a record that isn't the next one is no damaged one.
int THexFile::CheckData(const char* record)
{
    if (AddressOf(record, baseAddress) != nextAddress)
        return WrongAddress;
    if (!IsChecksumGood(record, CountOf(record)))
        return BadChecksum;
    nextAddress += CountOf(record);
    return Accept(record, Accepted);
}

int THexFile::CheckUpperAddress(const char* record)
{
    baseAddress = UpperAddressOf(record);
    if (!IsChecksumGood(record, kUpperAddressBytes))
        return BadChecksum;
    nextAddress = baseAddress;
    return Accept(record, Accepted);
}

int THexFile::Accept(const char* record, RecordResult result)
{
    checkedLines->Add(record);
    return result;
}
