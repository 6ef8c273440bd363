#include "HexCheck.h"

#include <cstdio>
#include <utility>

#include "HexFormat.h"
#include "HexRecord.h"

namespace {

constexpr std::uint32_t kFlashStart = 0x90000000;
constexpr std::uint32_t kFlashEnd = 0x91000000;
constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::size_t kShortestRecord = HexRecord::kDataAt + 2;
// Data bytes of the longest record that can be loaded: what one lost line leaves open.
constexpr std::uint32_t kMostData = (kLongestLine - 1 - kShortestRecord) / 2;

enum OtherType : unsigned char { SegmentAddress = 2, SegmentStart = 3, LinearStart = 5 };

std::string Digits(std::uint32_t value, int width)
{
    char text[sizeof("01234567")];
    std::snprintf(text, sizeof(text), "%0*X", width, static_cast<unsigned>(value));
    return text;
}

std::string Address(std::uint32_t address)
{
    return Digits(address, 8);
}

std::string Bytes(std::uint32_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string Character(char character)
{
    const auto value = static_cast<unsigned char>(character);
    if (value > ' ' && value <= '~')
        return {'"', character, '"'};
    return "the character 0x" + Digits(value, 2);
}

std::size_t LengthByCount(std::string_view line)
{
    return kShortestRecord + std::size_t{2} * HexRecord(line).Count();
}

std::string WrongDigit(char character)
{
    if (character >= 'a' && character <= 'f')
        return "a lower-case digit, " + Character(character) + ", which the unit reads as 0";
    return Character(character) + " is no hex digit, and the unit reads it as 0";
}

std::string WrongLength(std::size_t length, std::size_t expected)
{
    if (length > expected)
        return "characters after the checksum: " + std::to_string(length - expected);
    return "the record is cut short: " + std::to_string(length) + " characters of " +
           std::to_string(expected);
}

// What is wrong with the record in itself; empty for a good one. `line` isn't empty.
std::string DamageOf(std::string_view line)
{
    if (line.find_first_of(std::string_view("\r\0", 2)) != std::string_view::npos)
        return "a CR or NUL inside the line, at which the unit ends it";
    if (line[0] != ':')
        return "not a record: it does not begin with \":\"";
    const std::size_t expected =
        line.size() < kShortestRecord ? kShortestRecord : LengthByCount(line);
    const std::size_t wrong = line.find_first_not_of(kHexDigits, 1);
    if (wrong < expected)
        return WrongDigit(line[wrong]);
    if (line.size() != expected)
        return WrongLength(line.size(), expected);
    const HexRecord record(line);
    if (!record.IsChecksumGood(record.Count()))
        return "wrong checksum";
    return {};
}

class Checker {
public:
    HexReport Check(std::string_view text);

private:
    void TakeLine(std::string_view line);
    void TakeLineEnd(LineEnds kind);
    void TakeRecord(const HexRecord& record);
    void TakeData(const HexRecord& record);
    void TakeUpperAddress(const HexRecord& record);
    void TakeOther(unsigned char type);
    void CheckPlace(std::uint32_t address);
    void CheckPlaceAfterBase(std::uint32_t address);
    void CheckBlock(std::uint32_t address, std::uint32_t end);
    void CheckFlash(std::uint32_t address);
    void CheckBaseWasUsed();
    bool IsSentAlone() const { return baseIsNew || !blockIsOpen; }
    void TakeVersion(const HexRecord& record);
    void AddRange(std::uint32_t address, std::uint32_t size);
    void End(bool isCutOff);

    void Add(Severity severity, std::size_t at, std::string text,
             std::optional<std::uint32_t> address = std::nullopt);
    void Error(std::string text, std::optional<std::uint32_t> address = std::nullopt);
    void Warn(std::string text, std::optional<std::uint32_t> address = std::nullopt);

    HexReport report;
    std::size_t lineNumber = 0;

    std::uint32_t base = 0;    // of the last address record
    std::size_t baseLine = 0;  // where that was; 0 before the first
    bool baseIsNew = false;    // no data since
    std::uint32_t next = 0;    // past the last data record
    bool nextIsKnown = false;  // false after a damaged line, which may have been data or an address
    bool blockIsOpen = false;
    bool hasEnded = false;

    // What is reported once a file.
    bool mixedReported = false;
    bool baseReported = false;
    bool stepReported = false;
    bool outsideReported = false;
    bool restReported = false;
};

HexReport Checker::Check(std::string_view text)
{
    while (true) {
        const std::size_t end = text.find(kLf);
        if (end == std::string_view::npos)
            break;
        ++lineNumber;
        TakeLine(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    if (!text.empty())
        Add(Severity::Error, lineNumber + 1,
            "the last line has no line end, so the unit does not load it; the file may be cut off");
    End(!text.empty());
    return std::move(report);
}

void Checker::TakeLine(std::string_view line)
{
    const std::size_t length = line.size() + 1;
    const bool hasCr = !line.empty() && line.back() == kCr;
    TakeLineEnd(hasCr ? LineEnds::CrLf : LineEnds::Lf);
    if (hasCr)
        line.remove_suffix(1);
    if (hasEnded) {
        if (!line.empty() && !std::exchange(restReported, true))
            Error("more follows the end record");
        return;
    }
    std::string damage;
    if (length > kLongestLine)
        damage = "a line of " + std::to_string(length) +
                 " bytes: the unit loads no file with more than " + std::to_string(kLongestLine) +
                 " in a line";
    else
        damage = line.empty() ? "a blank line before the end record" : DamageOf(line);
    if (damage.empty())
        return TakeRecord(HexRecord(line));
    Error(std::move(damage), nextIsKnown ? std::optional<std::uint32_t>(next) : std::nullopt);
    nextIsKnown = nextIsKnown && line.empty();
    baseIsNew = baseIsNew && line.empty();
}

void Checker::TakeLineEnd(LineEnds kind)
{
    if (report.lineEnds == LineEnds::None)
        report.lineEnds = kind;
    if (report.lineEnds == kind || std::exchange(mixedReported, true))
        return;
    report.lineEnds = LineEnds::Mixed;
    Error(kind == LineEnds::Lf
              ? "the line end is LF after lines with CR LF: a character was lost"
              : "the line end is CR LF after lines with LF: a character was added");
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
    const std::uint32_t end = address + size;
    CheckPlace(address);
    CheckFlash(address);
    CheckBlock(address, end);
    if (address == kVersionAddress)
        TakeVersion(record);
    AddRange(address, size);
    next = end;
    nextIsKnown = true;
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
}

void Checker::TakeOther(unsigned char type)
{
    const std::string record = "a record of type " + std::to_string(type);
    const bool isProgramStart = type == SegmentStart || type == LinearStart;
    if (isProgramStart && IsSentAlone())
        return Error(record + " where no block of data is open: the board, which answers data "
                              "alone, is waited for in vain");
    if (isProgramStart)
        return Warn(record + ", the start address of a program, which means nothing to a flash");
    if (type == SegmentAddress)
        return Error(record + ": the unit does not know these addresses and sends the data "
                              "that follow to another place");
    Error(record + ", which the unit does not know");
}

void Checker::CheckPlace(std::uint32_t address)
{
    if (baseLine == 0 && !std::exchange(baseReported, true) && report.errors == 0)
        return Error("data before the first address record (type 4): where they belong is unknown",
                     address);
    const bool hasData = !report.ranges.empty();
    if (hasData && (!nextIsKnown || address == next))
        return;
    if (hasData && address < next)
        return Error("the data go back to " + Address(address) + ", and those before end at " +
                         Address(next),
                     address);
    if (baseIsNew)
        return CheckPlaceAfterBase(address);
    if (hasData)
        Error("a gap of " + Bytes(address - next) + " from " + Address(next) +
                  ", which no address record (type 4) introduces: a line may be lost",
              next);
}

// A lost line shows as a gap no longer than a record between the base and the data.
void Checker::CheckPlaceAfterBase(std::uint32_t address)
{
    const std::uint32_t skipped = address - base;
    if (skipped > 0 && skipped <= kMostData)
        return Error("a gap of " + Bytes(skipped) + " from " + Address(base) +
                         ", where the address record in line " + std::to_string(baseLine) +
                         " puts the data: a line may be lost",
                     base);
    if (!report.ranges.empty())
        Warn("a gap of " + Bytes(address - next) + " from " + Address(next), next);
}

void Checker::CheckBlock(std::uint32_t address, std::uint32_t end)
{
    constexpr std::uint32_t kBlock = kWriteBlock;
    blockIsOpen = end % kBlock != 0;
    if (!blockIsOpen)
        ++report.blocks;
    const bool stepsOver = blockIsOpen && address % kBlock != 0 && address / kBlock != end / kBlock;
    if (stepsOver && !std::exchange(stepReported, true))
        Warn("the record steps over " + Address(end / kBlock * kBlock) +
                 ", so that the board answers later than it does as a rule",
             address);
}

void Checker::CheckFlash(std::uint32_t address)
{
    const bool isInside = address >= kFlashStart && address < kFlashEnd;
    if (!isInside && !std::exchange(outsideReported, true))
        Warn("data at " + Address(address) + ", outside the flash (" + Address(kFlashStart) +
                 " to " + Address(kFlashEnd - 1) + ")",
             address);
}

// The unit sends an address record together with the row that follows it and then waits for an
// answer, which the board gives to data alone.
void Checker::CheckBaseWasUsed()
{
    if (std::exchange(baseIsNew, false))
        Add(Severity::Error, baseLine, "no data follow this address record (type 4)", base);
}

void Checker::TakeVersion(const HexRecord& record)
{
    report.version.clear();
    for (int i = 0; i < record.Count() && record.Data(i) != 0; ++i)
        report.version += static_cast<char>(record.Data(i));
}

void Checker::AddRange(std::uint32_t address, std::uint32_t size)
{
    report.bytes += size;
    auto& ranges = report.ranges;
    if (!ranges.empty() && ranges.back().start + ranges.back().size == address)
        ranges.back().size += size;
    else if (size > 0)
        ranges.push_back({address, size});
}

void Checker::End(bool isCutOff)
{
    if (blockIsOpen)
        ++report.blocks;
    if (report.ranges.empty())
        Error("the file has no data");
    else if (report.version.empty())
        Warn("no version text: no record begins at " + Address(kVersionAddress));
    if (!hasEnded && !isCutOff)
        Error("no end record (type 1): the board waits for more");
}

void Checker::Add(Severity severity, std::size_t at, std::string text,
                  std::optional<std::uint32_t> address)
{
    ++(severity == Severity::Error ? report.errors : report.warnings);
    if (report.findings.size() < HexReport::kMostFindings)
        report.findings.push_back({at, severity, std::move(text), address});
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

HexReport CheckHex(std::string_view text)
{
    return Checker().Check(text);
}
