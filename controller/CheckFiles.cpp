#include <algorithm>
#include <cstdio>
#include <fstream>

#include "Command.h"
#include "Hexadecimal.h"
#include "ImageFile.h"
#include "Json.h"
#include "Picture.h"

namespace {

constexpr char kNoChecksum[] = "This form has no checksum: other damage cannot be seen in it.";

const char* NameOf(Severity severity)
{
    return severity == Severity::Error ? "error" : "warning";
}

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
    std::printf("%s", PictureText(Draw(Image(file.hexText), file.report)).c_str());
}

void PrintFindingsAsJson(const std::string& path, const HexReport& report)
{
    for (const Finding& finding : report.findings) {
        Json object = MakeEvent("finding");
        object["file"] = MakeText(path);
        if (finding.line > 0)
            object["line"] = finding.line;
        object["severity"] = NameOf(finding.severity);
        if (finding.address)
            object["address"] = EightDigits(*finding.address);
        object["text"] = finding.text;
        Print(object);
    }
}

void PrintSummaryAsJson(const std::string& path, const ImageFile& file)
{
    const HexReport& report = file.report;
    Json object = MakeEvent("summary");
    object["file"] = MakeText(path);
    object["errors"] = report.errors;
    object["warnings"] = report.warnings;
    object["version"] = MakeText(report.version);
    object["ranges"] = Json::array();
    for (const AddressRange& range : report.ranges)
        object["ranges"].push_back({{"start", EightDigits(range.start)}, {"size", range.size}});
    object["bytes"] = report.bytes;
    object["blocks"] = report.blocks;
    if (file.form == ImageForm::Hex) {
        object["records"] = report.records;
        object["line_ends"] = NameOf(report.lineEnds);
    } else {
        object["text"] = kNoChecksum;
    }
    Print(object);
}

// False with a complaint when the file can't be written.
bool WriteSvg(const std::string& target, const std::string& path, const ImageFile& file)
{
    const std::string title = path + "  " + file.report.version;
    std::ofstream svg(target);
    svg << PictureSvg(Draw(Image(file.hexText), file.report), title);
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
