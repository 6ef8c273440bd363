#include "THexFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "FileBytes.h"
#include "HexFormat.h"
#include "HexRecord.h"
#include "TSString.h"
#include "TSStringList.h"
#include "UniqueFd.h"

namespace {

constexpr unsigned long kAddressMask = 0xFFFFFFFF;  // an address where a long has 64 bits, too

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

    const UniqueFd file(OpenToRead(path));
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
        const bool isText = static_cast<unsigned char>(lines[i][0]) > kCr;
        const HexRecord record(lines[i]);
        if (!isText || !record.HasAddress())
            continue;
        switch (record.Type()) {
        case HexRecord::kData: ScanData(record, upper); break;
        case HexRecord::kUpperAddress:
            upper = record.UpperAddress();
            if (startAddress == 0)
                startAddress = upper;
            endAddress = upper;
            break;
        default: break;
        }
    }
}

bool THexFile::GetSendedAddress(const char* text, unsigned long* upperAddress,
                                unsigned long* sendedAddress) const
{
    const HexRecord record(text);
    if (!record.HasAddress())
        return false;
    switch (record.Type()) {
    case HexRecord::kData:
        *sendedAddress = record.Address(*upperAddress & kAddressMask) + record.Count();
        return false;
    case HexRecord::kUpperAddress:
        *upperAddress = record.UpperAddress();
        *sendedAddress = *upperAddress;
        return true;
    default: return false;
    }
}

int THexFile::CheckIntelHex(const char* text)
{
    if (text[0] != ':')
        return NotARecord;
    const HexRecord record(text);
    if (!record.IsComplete())
        return CutShort;
    switch (record.Type()) {
    case HexRecord::kData: return CheckData(text);
    case HexRecord::kEndOfFile: return Accept(text, LastAccepted);  // whatever its checksum
    case HexRecord::kUpperAddress: return CheckUpperAddress(text);
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

void THexFile::ScanData(const HexRecord& record, std::uint32_t upper)
{
    endAddress = record.Address(upper);
    if (endAddress == kVersionAddress)
        TakeVersion(record);
    endAddress += record.Count();
}

// Takes the data as text, as far as the row has it.
void THexFile::TakeVersion(const HexRecord& record)
{
    const int count = record.CountPresent();
    for (int i = 0; i < count; ++i)
        versionText[i] = static_cast<char>(record.Data(i));
    versionText[count] = '\0';
}

// The address is tested before the checksum: a record that isn't the next one is no damaged one.
int THexFile::CheckData(const char* text)
{
    const HexRecord record(text);
    if (record.Address(baseAddress) != nextAddress)
        return WrongAddress;
    if (!record.IsChecksumGood(record.Count()))
        return BadChecksum;
    nextAddress += record.Count();
    return Accept(text, Accepted);
}

int THexFile::CheckUpperAddress(const char* text)
{
    const HexRecord record(text);
    baseAddress = record.UpperAddress();
    if (!record.IsChecksumGood(HexRecord::kUpperAddressCount))
        return BadChecksum;
    nextAddress = baseAddress;
    return Accept(text, Accepted);
}

int THexFile::Accept(const char* text, RecordResult result)
{
    checkedLines->Add(text);
    return result;
}
