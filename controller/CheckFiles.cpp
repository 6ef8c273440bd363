#include <algorithm>
#include <cstdio>

#include "Command.h"
#include "Event.h"
#include "Hexadecimal.h"
#include "LoadImage.h"
#include "NewFile.h"
#include "Picture.h"
#include "Printable.h"

namespace {

constexpr std::size_t kShown = 20;  // findings of a file, and ranges, without --all

const char* NameOf(LineEnds ends)
{
    switch (ends) {
    case LineEnds::Lf: return "LF";
    case LineEnds::CrLf: return "CR LF";
    case LineEnds::Mixed: return "mixed";
    default: return "none";
    }
}

// What a file that isn't Intel HEX has in the place of a checksum in each line.
std::string SumText(const std::string& path, const ImageFile& file)
{
    const std::string sumFile = WithExtension(path, ".sum");
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

void PrintFindings(const std::string& path, const HexReport& report, bool all)
{
    const std::size_t shown = CountShown(report.findings.size(), all);
    for (std::size_t i = 0; i < shown; ++i)
        std::printf("%s\n", Readable(Describe(path, report.findings[i])).c_str());
    const std::size_t left = report.errors + report.warnings - shown;
    if (left > 0)
        std::printf("%s: %s not shown%s\n", Readable(path).c_str(),
                    Counted(left, "finding").c_str(), all ? "" : "; --all shows more");
}

void PrintRanges(const std::vector<AddressRange>& ranges, bool all)
{
    const std::size_t shown = CountShown(ranges.size(), all);
    for (std::size_t i = 0; i < shown; ++i)
        std::printf("  data       %s to %s, %s\n", EightDigits(ranges[i].start).c_str(),
                    EightDigits(ranges[i].start + ranges[i].size - 1).c_str(),
                    Counted(ranges[i].size, "byte").c_str());
    if (ranges.size() > shown)
        std::printf("  data       %s not shown; --all shows them\n",
                    Counted(ranges.size() - shown, "range").c_str());
}

void PrintSummary(const std::string& path, const ImageFile& file, bool all)
{
    const HexReport& report = file.report;
    std::printf("  version    %s\n",
                report.version.empty() ? "none" : Readable(report.version).c_str());
    PrintRanges(report.ranges, all);
    std::printf("  total      %s in %s\n", Counted(report.bytes, "byte").c_str(),
                Counted(report.blocks, "block").c_str());
    if (file.form == ImageForm::Hex)
        std::printf("  file       %s, line ends %s\n", Counted(report.records, "record").c_str(),
                    NameOf(report.lineEnds));
    else
        std::printf("  checksum   %s\n", Readable(SumText(path, file)).c_str());
}

void PrintPlain(const std::string& path, const ImageFile& file, const Invocation& invocation)
{
    const HexReport& report = file.report;
    PrintFindings(path, report, invocation.all);
    if (invocation.quiet)
        return;
    std::printf("%s: %s, %s\n", Readable(path).c_str(), Counted(report.errors, "error").c_str(),
                Counted(report.warnings, "warning").c_str());
    PrintSummary(path, file, invocation.all);
    std::printf("%s", PictureText(DrawImage(file.hexText, report)).c_str());
}

void PrintFindingsAsJson(const std::string& path, const HexReport& report, bool all)
{
    for (std::size_t i = 0; i < CountShown(report.findings.size(), all); ++i) {
        const Finding& finding = report.findings[i];
        Event event("finding");
        event.AddText("file", path);
        if (finding.line > 0)
            event.AddNumber("line", finding.line);
        event.AddText("severity", NameOf(finding.severity));
        if (finding.address)
            event.AddText("address", EightDigits(*finding.address));
        event.AddText("text", finding.text);
        event.Print();
    }
}

void PrintSummaryAsJson(const std::string& path, const ImageFile& file)
{
    const HexReport& report = file.report;
    Event event("summary");
    event.AddText("file", path);
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
        event.AddText("line_ends", NameOf(report.lineEnds));
    } else {
        event.AddText("text", SumText(path, file));
    }
    event.Print();
}

Outcome CheckFile(const std::string& path, const Invocation& invocation)
{
    ImageFile file;
    if (Outcome loaded = LoadImage(path, invocation, file); !loaded.IsSuccess())
        return loaded;
    if (invocation.json) {
        PrintFindingsAsJson(path, file.report, invocation.all);
        PrintSummaryAsJson(path, file);
    } else {
        PrintPlain(path, file, invocation);
    }
    if (!invocation.svg.empty()) {
        const Picture picture = DrawImage(file.hexText, file.report);
        if (Outcome drawn = WriteNewFile(invocation.svg,
                                         PictureSvg(picture, path + "  " + file.report.version));
            !drawn.IsSuccess())
            return drawn;
    }
    return file.report.errors == 0 ? Status::Success : Status::Failed;
}

}  // namespace

Outcome CheckFiles(const Invocation& invocation)
{
    if (!invocation.svg.empty() && invocation.arguments.size() > 1)
        return WrongUsage("--svg takes one file");
    Status worst = Status::Success;
    for (const std::string& path : invocation.arguments) {
        const Outcome checked = CheckFile(path, invocation);
        if (!checked.reason.empty())
            Complain(checked.reason);
        worst = std::max(worst, checked.status);
    }
    return worst;
}
