#include <algorithm>
#include <cstdio>
#include <fstream>

#include "Command.h"
#include "Event.h"
#include "Hexadecimal.h"
#include "ImageFile.h"
#include "Picture.h"

namespace {

constexpr char kNoChecksum[] = "This form has no checksum: other damage cannot be seen in it.";

const char* NameOf(LineEnds ends)
{
    switch (ends) {
    case LineEnds::Lf: return "LF";
    case LineEnds::CrLf: return "CR LF";
    case LineEnds::Mixed: return "mixed";
    default: return "none";
    }
}

void PrintFindings(const std::string& path, const HexReport& report)
{
    for (const Finding& finding : report.findings)
        std::printf("%s\n", Readable(Describe(path, finding)).c_str());
    const std::size_t all = report.errors + report.warnings;
    if (all > report.findings.size())
        std::printf("%s: %zu more are not shown\n", Readable(path).c_str(),
                    all - report.findings.size());
}

void PrintSummary(const ImageFile& file)
{
    const HexReport& report = file.report;
    std::printf("  version    %s\n",
                report.version.empty() ? "none" : Readable(report.version).c_str());
    for (const AddressRange& range : report.ranges)
        std::printf("  data       %s to %s, %u bytes\n", EightDigits(range.start).c_str(),
                    EightDigits(range.start + range.size - 1).c_str(),
                    static_cast<unsigned>(range.size));
    std::printf("  altogether %zu bytes in %zu blocks\n", report.bytes, report.blocks);
    if (file.form == ImageForm::Hex)
        std::printf("  file       %zu records, line ends %s\n", report.records,
                    NameOf(report.lineEnds));
    else
        std::printf("  %s\n", kNoChecksum);
}

void PrintPlain(const std::string& path, const ImageFile& file, bool quiet)
{
    PrintFindings(path, file.report);
    if (quiet)
        return;
    std::printf("%s: %zu errors, %zu warnings\n", Readable(path).c_str(), file.report.errors,
                file.report.warnings);
    PrintSummary(file);
    std::printf("%s", PictureText(Draw(file.hexText, file.report)).c_str());
}

void PrintFindingsAsJson(const std::string& path, const HexReport& report)
{
    for (const Finding& finding : report.findings) {
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
        event.AddText("text", kNoChecksum);
    }
    event.Print();
}

// False with a complaint when the file can't be written.
bool WriteSvg(const std::string& target, const std::string& path, const ImageFile& file)
{
    const std::string title = path + "  " + file.report.version;
    std::ofstream svg(target);
    svg << PictureSvg(Draw(file.hexText, file.report), title);
    svg.close();
    if (!svg)
        Complain(target + ": can't be written");
    return !svg.fail();
}

Status CheckFile(const std::string& path, const Invocation& invocation)
{
    ImageFile file;
    if (const Outcome loaded = Load(path, file); loaded.status != Status::Success) {
        Complain(loaded.reason);
        return loaded.status;
    }
    if (invocation.json) {
        PrintFindingsAsJson(path, file.report);
        PrintSummaryAsJson(path, file);
    } else {
        PrintPlain(path, file, invocation.quiet);
    }
    const bool isDrawn = invocation.svg.empty() || WriteSvg(invocation.svg, path, file);
    return isDrawn && file.report.errors == 0 ? Status::Success : Status::Failed;
}

}  // namespace

Outcome CheckFiles(const Invocation& invocation)
{
    if (invocation.arguments.empty())
        return WrongUsage("check takes a file, or several");
    if (!invocation.svg.empty() && invocation.arguments.size() > 1)
        return WrongUsage("--svg takes one file");
    if (FormOf(invocation.svg))
        return WrongUsage("--svg takes the name of a picture, not of an image");
    Status worst = Status::Success;
    for (const std::string& path : invocation.arguments)
        worst = std::max(worst, CheckFile(path, invocation));
    return worst;
}
