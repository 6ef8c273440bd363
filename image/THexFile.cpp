#include "THexFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "FileBytes.h"
#include "HexFormat.h"
#include "HexRecord.h"

// What a text has before any row is made from it. Bytes after the last LF make no line.
struct THexFile::LineTable {
    explicit LineTable(std::string_view text);

    // The first row of what is left of the text. Where a CR precedes each LF, it is the only one to
    // look for.
    std::string_view FirstRow(std::string_view left) const
    {
        return areAllCrLf ? left.substr(0, left.find(kCr)) : FirstLine(left);
    }

    std::int32_t count = 0;   // lines
    std::size_t longest = 0;  // bytes, the line end included
    std::size_t size = 0;     // bytes of all lines
    bool areAllCrLf = true;   // each LF has a CR before it
};

THexFile::LineTable::LineTable(std::string_view text)
{
    for (std::size_t lf = 0; (lf = text.find(kLf, size)) != std::string_view::npos; size = lf + 1) {
        ++count;
        longest = std::max(longest, lf + 1 - size);
        areAllCrLf = areAllCrLf && lf > size && text[lf - 1] == kCr;
    }
}

// Such a first character makes a row no record.
static bool IsControl(unsigned char character)
{
    return character <= kCr;
}

bool THexFile::LoadFromFile(const char* path)
{
    DropImage();  // even if the file can't be read

    FileBytes bytes;
    if (!ReadWholeFile(path, bytes))
        return false;

    return LoadFromText(bytes.Text());
}

bool THexFile::LoadFromText(std::string_view text)
{
    DropImage();
    // Two passes over the text: the rows can't be made before the longest line is known.
    const LineTable table(text);
    if (table.longest > kLongestLine || !MakeRows(table.count, table.longest))
        return false;
    FillRows(text.substr(0, table.size), table);
    return true;
}

void THexFile::GetStartEndAddress()
{
    startAddress = 0;
    std::uint32_t upper = 0;
    for (std::int32_t i = 0; i < lineCount; ++i)
        ScanRow(lines[i], upper);
}

bool THexFile::GetSendedAddress(const char* text, unsigned long* upperAddress,
                                unsigned long* sendedAddress) const
{
    const HexRecord record(FirstLine(text));
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
    const HexRecord record(FirstLine(text));
    const RecordResult result = record.IsComplete() ? Check(record) : CutShort;
    if (result == Accepted || result == LastAccepted)
        checkedLines->Add(text);
    return result;
}

// The records bring their own line ends.
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

void THexFile::DropImage()
{
    memory = nullptr;
    lines = nullptr;
    maxLineLength = 0;
    lineCount = 0;
    startAddress = 0;
    endAddress = 0;
    versionText[0] = '\0';
}

// The table and all rows are in one block, zeroed, so that rows left over at the end are empty.
// calloc refuses a size that overflows. Untouched rows cost no memory, only their pointers do, as
// in a file of nothing but line ends.
bool THexFile::MakeRows(std::int32_t count, std::size_t longest)
{
    if (count == 0)
        return true;
    const std::size_t rowSize = longest + 1;
    memory.reset(static_cast<char**>(std::calloc(count, sizeof(*lines) + rowSize)));
    if (!memory)
        return false;
    lines = memory.get();
    lines[0] = reinterpret_cast<char*>(lines + count);
    for (std::int32_t i = 1; i < count; ++i)
        lines[i] = lines[i - 1] + rowSize;
    maxLineLength = static_cast<std::int32_t>(longest);
    lineCount = count;
    return true;
}

// A row ends at a CR or an LF, and an LF right after either goes with it. So a lone CR makes one
// row more, and the last rows of the file then find no place. `text` ends in an LF. Each row is
// scanned while its length is known: to find it again would cost as much as the scan.
void THexFile::FillRows(std::string_view text, const LineTable& table)
{
    std::uint32_t upper = 0;
    for (std::int32_t i = 0; i < lineCount && !text.empty(); ++i) {
        const std::string_view row = table.FirstRow(text);
        row.copy(lines[i], row.size());
        ScanRow(row, upper);
        text.remove_prefix(row.size() + 1);
        if (!text.empty() && text.front() == kLf)
            text.remove_prefix(1);
    }
}

// `upper` is what the last upper address before the row has set, and is set by the row.
void THexFile::ScanRow(std::string_view row, std::uint32_t& upper)
{
    const HexRecord record(row);
    if (!record.HasAddress() || IsControl(row.front()))
        return;
    switch (record.Type()) {
    case HexRecord::kData: return ScanData(record, upper);
    case HexRecord::kUpperAddress:
        upper = record.UpperAddress();
        endAddress = upper;
        if (startAddress == 0)
            startAddress = upper;
        return;
    default: return;
    }
}

void THexFile::ScanData(const HexRecord& record, std::uint32_t upper)
{
    const std::uint32_t address = record.Address(upper);
    if (address == kVersionAddress)
        TakeVersion(record);
    endAddress = address + record.Count();
}

// Takes the data as text, as far as the row has it.
void THexFile::TakeVersion(const HexRecord& record)
{
    // A count is at most 255, so there is always room for the NUL.
    const std::size_t count = record.CountPresent();
    for (std::size_t i = 0; i < count; ++i)
        versionText[i] = record.Data(i);
    versionText[count] = '\0';
}

THexFile::RecordResult THexFile::Check(const HexRecord& record)
{
    switch (record.Type()) {
    case HexRecord::kData: return CheckData(record);
    case HexRecord::kEndOfFile: return LastAccepted;  // whatever its checksum
    case HexRecord::kUpperAddress: return CheckUpperAddress(record);
    default: return UnknownType;
    }
}

// The address is tested before the checksum: a record that isn't the next one is no damaged one.
THexFile::RecordResult THexFile::CheckData(const HexRecord& record)
{
    if (record.Address(baseAddress) != nextAddress)
        return WrongAddress;
    if (!record.IsChecksumGood(record.Count()))
        return BadChecksum;
    nextAddress += record.Count();
    return Accepted;
}

// The base changes even if the checksum is wrong: the read ends there anyway.
THexFile::RecordResult THexFile::CheckUpperAddress(const HexRecord& record)
{
    baseAddress = record.UpperAddress();
    if (!record.IsChecksumGood(HexRecord::kUpperAddressCount))
        return BadChecksum;
    nextAddress = baseAddress;
    return Accepted;
}
