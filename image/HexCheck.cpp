#include "HexCheck.h"

#include <utility>

#include "HexFormat.h"
#include "HexRecord.h"
#include "Hexadecimal.h"
#include "Text.h"

namespace {

constexpr std::size_t kShortestRecord = HexRecord::kDataAt + 2;
// Data bytes of the longest record that can be loaded: what one lost line leaves open.
constexpr std::uint32_t kMostData = (kLongestLine - 1 - kShortestRecord) / 2;

// The start addresses of programs, which Intel HEX has for other uses than a flash.
constexpr unsigned char kSegmentStart = 3;
constexpr unsigned char kLinearStart = 5;

std::string Bytes(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string WrongDigit(char character)
{
    const bool isVisible = IsPrintable(character) && character != ' ';
    const std::string name =
        isVisible ? std::string{'"', character, '"'} : "the character 0x" + TwoDigits(character);
    return name + " is not an upper-case hex digit, and the unit reads it as 0";
}

// What is wrong with the record in itself; empty for a good one. `length` is that of the line with
// its end. A field is read only once its digits are known to be good, and the checksum last: it is
// wrong after any other damage, which is the better name for it.
std::string DamageOf(std::string_view line, std::size_t length)
{
    if (length > kLongestLine)
        return "a line of " + Bytes(length) + ": the unit loads no file with more than " +
               std::to_string(kLongestLine) + " in a line";
    if (line.empty())
        return "a blank line before the end record";
    if (line.find_first_of(std::string_view("\r\0", 2)) != std::string_view::npos)
        return "a CR or NUL inside the line, at which the unit ends it";
    if (line[0] != ':')
        return "not a record: it does not begin with \":\"";
    const HexRecord record(line);
    const std::size_t count = line.size() < kShortestRecord ? 0 : record.Count();
    const std::size_t expected = kShortestRecord + 2 * count;
    const std::size_t wrong = line.find_first_not_of(kHexDigits, 1);
    if (wrong < expected)
        return WrongDigit(line[wrong]);
    if (line.size() > expected)
        return "characters after the checksum: " + std::to_string(line.size() - expected);
    if (line.size() < expected)
        return "the record is cut short: " + std::to_string(line.size()) + " characters of " +
               std::to_string(expected);
    return record.IsChecksumGood(count) ? "" : "wrong checksum";
}

// Follows the file line by line, as the unit sends it: in blocks that end where data ends on a
// multiple of the block's size. At the end of each the unit waits for the board, which answers data
// alone. A row without data that ends up alone in a block therefore stops the update.
class Checker {
public:
    explicit Checker(Severity severityOutside) : outsideFlash(severityOutside) {}

    HexReport Check(std::string_view text);

private:
    void TakeLine(std::string_view line);
    void TakeLineEnd(LineEnds kind);
    void TakeRecord(const HexRecord& record);
    void TakeData(const HexRecord& record);
    void TakeUpperAddress(const HexRecord& record);
    void TakeOther(unsigned char type);
    void TakeRowWithoutData(const std::string& row);
    void CheckPlace(std::uint32_t address);
    void CheckPlaceAfterBase(std::uint32_t address);
    void CheckFlash(std::uint32_t address, std::uint32_t size);
    void CheckBlock(std::uint32_t address, std::uint32_t end);
    void CheckBaseWasUsed();
    void ScanForVersion(std::string_view row);
    void AddRange(std::uint32_t address, std::uint32_t size);
    void End();

    void Add(Severity severity, std::size_t at, std::string text,
             std::optional<std::uint32_t> address, bool isOutsideFlash = false);
    void Error(std::string text, std::optional<std::uint32_t> address = std::nullopt);
    void Warn(std::string text, std::optional<std::uint32_t> address = std::nullopt);

    const Severity outsideFlash;  // of data there

    HexReport report;            // of the lines so far
    std::size_t lineNumber = 0;  // from 1

    std::uint32_t versionBase = 0;         // as the unit's search for the version takes it
    std::uint32_t base = 0;                // of the last address record
    std::size_t baseLine = 0;              // where that was; 0 before the first
    bool baseIsNew = false;                // no data since
    std::optional<std::uint32_t> next;     // past the last data record; none before the first, and
                                           // after a damaged line, which may have been data
    std::optional<std::uint32_t> outside;  // past the last data that left the flash
    bool blockIsOpen = false;              // the last data did not reach the end of a block
    bool hasEnded = false;                 // the end record was there, or may have been

    // Reported once per file: the first shows the cause, and each line may repeat it.
    bool stepReported = false;
    bool restReported = false;
};

HexReport Checker::Check(std::string_view text)
{
    for (std::size_t end = 0; (end = text.find(kLf)) != std::string_view::npos;
         text.remove_prefix(end + 1))
        TakeLine(text.substr(0, end));
    if (!text.empty()) {
        ++lineNumber;
        Error("the last line has no line end, so the unit does not load it; the file may be cut "
              "off");
        hasEnded = true;  // it may have been the end record
    }
    End();
    return std::move(report);
}

void Checker::TakeLine(std::string_view line)
{
    ++lineNumber;
    const std::size_t length = line.size() + 1;
    ScanForVersion(FirstLine(line));
    const bool hasCr = !line.empty() && line.back() == kCr;
    TakeLineEnd(hasCr ? LineEnds::CrLf : LineEnds::Lf);
    if (hasCr)
        line.remove_suffix(1);
    if (hasEnded) {
        if (!line.empty() && !std::exchange(restReported, true))
            Error("more follows the end record");
        return;
    }
    const std::string damage = DamageOf(line, length);
    if (damage.empty())
        return TakeRecord(HexRecord(line));
    Error(damage, baseIsNew ? base : next);
    if (line.empty())
        return;
    // It may have been data or an address, so one damage isn't reported as two.
    next.reset();
    baseIsNew = false;
}

// The unit takes either. A file has one kind, so a second one shows that a CR was lost or added.
void Checker::TakeLineEnd(LineEnds kind)
{
    if (report.lineEnds == LineEnds::None)
        report.lineEnds = kind;
    if (report.lineEnds == kind || report.lineEnds == LineEnds::Mixed)
        return;
    report.lineEnds = LineEnds::Mixed;
    Error("the line end is not that of the lines before: a character was lost or added");
}

void Checker::TakeRecord(const HexRecord& record)
{
    ++report.records;
    switch (record.Type()) {
    case HexRecord::kData: return TakeData(record);
    case HexRecord::kUpperAddress: return TakeUpperAddress(record);
    case HexRecord::kEndOfFile:
        CheckBaseWasUsed();
        hasEnded = true;
        return;
    default: return TakeOther(record.Type());
    }
}

void Checker::TakeData(const HexRecord& record)
{
    const std::uint32_t size = record.Count();
    const std::uint32_t address = record.Address(base);
    CheckPlace(address);
    if (size == 0)
        return TakeRowWithoutData("a data record without data");
    CheckFlash(address, size);
    CheckBlock(address, address + size);
    AddRange(address, size);
    next = address + size;
    baseIsNew = false;
}

void Checker::TakeUpperAddress(const HexRecord& record)
{
    CheckBaseWasUsed();
    if (record.Count() != HexRecord::kUpperAddressCount)
        return Error("an address record (type 4) without exactly 2 bytes");
    base = record.UpperAddress();
    baseLine = lineNumber;
    baseIsNew = true;
    // The sender ignores this field, but Compress requires 0.
    if (record.Address(0) != 0)
        Warn(std::string("an address record (type 4) at ") +
                 UIntToSHex(record.Address(0), 4).c_str() + ", not 0000, which the unit ignores",
             base);
}

// Type 2 is as unknown as any other, and the worst: it moves the data that follows, but the unit
// goes on at the old place.
void Checker::TakeOther(unsigned char type)
{
    const std::string record = "a record of type " + std::to_string(type);
    if (type == kSegmentStart || type == kLinearStart)
        return TakeRowWithoutData(record + ", a program's start, which means nothing to a flash");
    Error(record + ", which the unit does not know");
}

void Checker::TakeRowWithoutData(const std::string& row)
{
    // An address record doesn't open a block: the unit sends it together with the row that follows.
    if (blockIsOpen && !baseIsNew)
        return Warn(row);
    Error(row + "; no block of data is open here, and the board answers only data, so the unit "
                "waits until it gives up");
}

// Where a damaged line leaves open what comes next, any place is good.
void Checker::CheckPlace(std::uint32_t address)
{
    if (baseLine == 0 && report.ranges.empty())
        Error("data before the first address record (type 4): its address is unknown", address);
    if (next == address)
        return;
    if (next && address < *next)
        return Error("the addresses go backwards to " + EightDigits(address) +
                         "; the data before ends at " + EightDigits(*next),
                     address);
    if (baseIsNew)
        return CheckPlaceAfterBase(address);
    if (next)
        Error("a gap of " + Bytes(address - *next) + " from " + EightDigits(*next) +
                  ", which no address record (type 4) introduces: a line may be lost",
              next);
}

// A lost line shows as a gap no longer than a record between the base and the data. A longer one,
// or one between what came before and the base, is how a file leaves flash out.
void Checker::CheckPlaceAfterBase(std::uint32_t address)
{
    const std::uint32_t skipped = address - base;
    if (skipped > 0 && skipped <= kMostData)
        return Error("a gap of " + Bytes(skipped) + " from " + EightDigits(base) +
                         ", where the address record in line " + std::to_string(baseLine) +
                         " puts the data: a line may be lost",
                     base);
    if (next)
        Warn("a gap of " + Bytes(address - *next) + " from " + EightDigits(*next), next);
}

// One finding for data that continues from one record to the next.
void Checker::CheckFlash(std::uint32_t address, std::uint32_t size)
{
    // What follows the last address is the first one, and so would seem to go on.
    if (address + size < address)
        Error("the data reaches the last address, FFFFFFFF", address);
    const std::uint32_t offset = address - kFlashStart;  // below the flash a very large one
    const bool isInside = offset < kFlashSize && size <= kFlashSize - offset;
    if (isInside || std::exchange(outside, address + size) == address)
        return;
    const std::uint32_t first = offset < kFlashSize ? kFlashStart + kFlashSize : address;
    Add(outsideFlash, lineNumber,
        "data at " + EightDigits(first) + ", outside the flash (" + EightDigits(kFlashStart) +
            " to " + EightDigits(kFlashStart + kFlashSize - 1) + ")",
        first, true);
}

// A record that steps over the end of a block leaves it open, up to the next one that ends on one.
void Checker::CheckBlock(std::uint32_t address, std::uint32_t end)
{
    constexpr std::uint32_t kBlock = kWriteBlock;
    blockIsOpen = end % kBlock != 0;
    if (!blockIsOpen)
        ++report.blocks;
    else if (address / kBlock != end / kBlock && !std::exchange(stepReported, true))
        Warn("the record steps over " + EightDigits(end / kBlock * kBlock) +
                 ", so that the board answers later than usual",
             address);
}

// Two address records in a row are sent as a block of their own, and without data there is no
// answer. One right before the end record does no harm, but its data may be lost.
void Checker::CheckBaseWasUsed()
{
    if (std::exchange(baseIsNew, false))
        Add(Severity::Error, baseLine, "no data follows this address record (type 4)", base);
}

// The unit looks for it in every row, whatever is wrong with the row, even after the end record.
// The last one counts, up to its first NUL.
void Checker::ScanForVersion(std::string_view row)
{
    const HexRecord record(row);
    if (!record.HasAddress())
        return;
    if (record.Type() == HexRecord::kUpperAddress)
        versionBase = record.UpperAddress();
    if (record.Type() != HexRecord::kData || record.Address(versionBase) != kVersionAddress)
        return;
    report.version.clear();
    const std::size_t count = record.CountPresent();
    for (std::size_t i = 0; i < count && record.Data(i) != 0; ++i)
        report.version += static_cast<char>(record.Data(i));
}

void Checker::AddRange(std::uint32_t address, std::uint32_t size)
{
    report.bytes += size;
    auto& ranges = report.ranges;
    if (!ranges.empty() && ranges.back().start + ranges.back().size == address)
        ranges.back().size += size;
    else
        ranges.push_back({address, size});
}

void Checker::End()
{
    if (blockIsOpen)
        ++report.blocks;
    if (report.ranges.empty())
        Error("the file has no data");
    else if (report.version.empty())
        Warn("no version text in a record that begins at " + EightDigits(kVersionAddress));
    if (!hasEnded)
        Error("no end record (type 1): the board waits for more");
}

void Checker::Add(Severity severity, std::size_t at, std::string text,
                  std::optional<std::uint32_t> address, bool isOutsideFlash)
{
    ++(severity == Severity::Error ? report.errors : report.warnings);
    if (report.findings.size() < HexReport::kMostFindings)
        report.findings.push_back({at, severity, std::move(text), address, isOutsideFlash});
}

void Checker::Error(std::string text, std::optional<std::uint32_t> address)
{
    Add(Severity::Error, lineNumber, std::move(text), address);
}

void Checker::Warn(std::string text, std::optional<std::uint32_t> address)
{
    Add(Severity::Warning, lineNumber, std::move(text), address);
}

}  // namespace

HexReport CheckHex(std::string_view text, Severity outsideFlash)
{
    return Checker(outsideFlash).Check(text);
}
