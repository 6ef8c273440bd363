#include "Listing.h"

#include <algorithm>

#include "Event.h"
#include "HexFormat.h"
#include "Hexadecimal.h"
#include "Picture.h"
#include "Printable.h"
#include "Remedy.h"
#include "SumFile.h"

namespace {

constexpr std::size_t kShown = 20;  // findings of a file, and ranges, without `all`

const char* LineEndsName(LineEnds ends)
{
    switch (ends) {
    case LineEnds::Lf: return "LF";
    case LineEnds::CrLf: return "CR LF";
    case LineEnds::Mixed: return "mixed";
    default: return "none";
    }
}

// What a file that isn't Intel HEX has in the place of a checksum in each line.
std::string SumText(std::string_view name, const ImageFile& file)
{
    const std::string sumFile = WithExtension(name, kSumExtension);
    if (file.form == ImageForm::Bin)
        return "this form has no checksum: other damage cannot be seen in it";
    switch (file.sum) {
    case Sum::Matches: return "matches " + sumFile;
    case Sum::Differs: return "differs from " + sumFile;
    default: return "no " + sumFile + ": other damage cannot be seen without it";
    }
}

std::size_t CountShown(std::size_t count, bool all)
{
    return all ? count : std::min(count, kShown);
}

std::string Row(const char* title, const std::string& value)
{
    std::string row = std::string("  ") + title;
    row.resize(std::string_view("  version    ").size(), ' ');
    return row + value + kLf;
}

std::string RangesText(const std::vector<AddressRange>& ranges, bool all)
{
    std::string text;
    const std::size_t shown = CountShown(ranges.size(), all);
    for (std::size_t i = 0; i < shown; ++i)
        text += Row("data", EightDigits(ranges[i].start) + " to " +
                                EightDigits(ranges[i].start + ranges[i].size - 1) + ", " +
                                Counted(ranges[i].size, "byte"));
    if (ranges.size() > shown)
        text +=
            Row("data", Counted(ranges.size() - shown, "range") + " not shown; --all shows them");
    return text;
}

std::string FindingJson(std::string_view name, const Finding& finding)
{
    Event event("finding");
    event.AddText("file", name);
    if (finding.line > 0)
        event.AddNumber("line", finding.line);
    event.AddText("severity", NameOf(finding.severity));
    if (finding.address)
        event.AddText("address", EightDigits(*finding.address));
    event.AddText("text", finding.text);
    event.AddText("next", RemedyFor(finding));
    return event.Line();
}

std::string SummaryJson(std::string_view name, const ImageFile& file)
{
    const HexReport& report = file.report;
    Event event("summary");
    event.AddText("file", name);
    event.AddNumber("errors", report.errors);
    event.AddNumber("warnings", report.warnings);
    event.AddText("version", report.version);
    event.AddList("ranges");
    for (const AddressRange& range : report.ranges)
        event.AddRange("ranges", EightDigits(range.start), range.size);
    event.AddNumber("bytes", report.bytes);
    event.AddNumber("blocks", report.blocks);
    if (file.form == ImageForm::Hex) {
        event.AddNumber("records", report.records);
        event.AddText("line_ends", LineEndsName(report.lineEnds));
    } else {
        event.AddText("text", SumText(name, file));
    }
    return event.Line();
}

std::string RowsText(const std::vector<std::uint32_t>& rows, const Image& left, const Image& right)
{
    std::string text;
    for (const std::uint32_t row : rows)
        text += EightDigits(row) + " A" + RowText(left, row) + "\n         B" +
                RowText(right, row) + kLf;
    return text;
}

}  // namespace

std::string FindingsText(std::string_view name, const HexReport& report, bool all)
{
    std::string text;
    const std::size_t shown = CountShown(report.findings.size(), all);
    for (std::size_t i = 0; i < shown; ++i)
        text += Readable(Describe(name, report.findings[i])) + kLf;
    const std::size_t left = report.errors + report.warnings - shown;
    if (left > 0)
        text += Readable(name) + ": " + Counted(left, "finding") + " not shown" +
                (all ? "" : "; --all shows more") + kLf;
    return text;
}

std::string SummaryText(std::string_view name, const ImageFile& file, bool all)
{
    const HexReport& report = file.report;
    const std::string sum = file.form == ImageForm::Hex
                                ? Row("file", Counted(report.records, "record") + ", line ends " +
                                                  LineEndsName(report.lineEnds))
                                : Row("checksum", Readable(SumText(name, file)));
    return Readable(name) + ": " + Counted(report.errors, "error") + ", " +
           Counted(report.warnings, "warning") + kLf +
           Row("version", report.version.empty() ? "none" : Readable(report.version)) +
           RangesText(report.ranges, all) +
           Row("total", Counted(report.bytes, "byte") + " in " + Counted(report.blocks, "block")) +
           sum + PictureText(DrawImage(file.hexText, report));
}

std::string CheckJson(std::string_view name, const ImageFile& file, bool all)
{
    const auto& findings = file.report.findings;
    std::string lines;
    for (std::size_t i = 0; i < CountShown(findings.size(), all); ++i)
        lines += FindingJson(name, findings[i]);
    return lines + SummaryJson(name, file);
}

std::string ComparisonText(const Comparison& comparison, const ImageFile& left,
                           const ImageFile& right)
{
    std::string text;
    for (const Difference& each : comparison.differences)
        text += EightDigits(each.first) + " to " + EightDigits(each.last) + ": " +
                Counted(each.bytes, "byte") + (each.bytes == 1 ? " differs" : " differ") + kLf;
    if (!comparison.rows.empty())
        text += RowsText(comparison.rows, Image(left.hexText), Image(right.hexText));
    return text;
}

std::string ComparisonJson(const Comparison& comparison)
{
    std::string lines;
    for (const Difference& each : comparison.differences) {
        Event event("difference");
        event.AddText("first", EightDigits(each.first));
        event.AddText("last", EightDigits(each.last));
        event.AddNumber("bytes", each.bytes);
        lines += event.Line();
    }
    return lines;
}
