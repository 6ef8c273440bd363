// The tool's work on firmware files for a page in a browser, as a WebAssembly module.
//
// A call takes its texts from a list, which the page fills by `argument` and the call empties, and
// leaves others in a list that the page reads by `result`. It returns how many these are, or
// kRefused when the only one is the reason why there are no others. Files have numbers, from 0.

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "Advice.h"
#include "Difference.h"
#include "Hexadecimal.h"
#include "Image.h"
#include "ImageFile.h"
#include "Listing.h"
#include "Medium.h"
#include "Picture.h"
#include "Status.h"
#include "SumFile.h"

namespace {

using Texts = std::vector<std::string>;

constexpr int kRefused = -1;

// A file of the user.
struct Opened {
    std::string name;
    ImageFile file;
    std::optional<Image> image;  // made for the first look at its bytes

    const Image& Bytes() { return image ? *image : image.emplace(file.hexText); }
    std::string Title() const { return name + "  " + file.report.version; }
};

struct Module {
    Texts arguments;
    Texts results;
    std::map<int, Opened> files;
    int nextFile = 0;
};

Module& TheModule()
{
    static Module module;
    return module;
}

Texts TakeArguments()
{
    return std::exchange(TheModule().arguments, {});
}

int Return(Texts results)
{
    TheModule().results = std::move(results);
    return static_cast<int>(TheModule().results.size());
}

int Refuse(const std::string& reason)
{
    Return({reason});
    return kRefused;
}

Opened& File(int number)
{
    return TheModule().files[number];
}

std::string PictureJson(const Picture& picture)
{
    nlohmann::ordered_json object = {{"isCut", picture.isCut}, {"rows", nlohmann::json::array()}};
    for (const PictureRow& row : picture.rows)
        object["rows"].push_back({{"address", row.address},
                                  {"cells", row.cells},
                                  {"gap", row.gap},
                                  {"sizes", row.sizes}});
    for (const char cell : picture.used) {
        const CellKind& kind = KindOf(cell);
        object["kinds"].push_back({{"cell", std::string(1, cell)},
                                   {"text", kind.text},
                                   {"onLight", kind.onLight},
                                   {"onDark", kind.onDark},
                                   {"isLettered", kind.isLettered}});
    }
    return object.dump();
}

// Why a file can't be used for more than a look; empty for a clean one.
std::string Obstacle(const Opened& opened)
{
    return DescribeErrors(opened.name, opened.file.report);
}

}  // namespace

extern "C" {

// Forgets arguments that a call has not taken.
[[clang::export_name("clear")]] void Clear()
{
    TakeArguments();
}

// Room for the bytes of the next argument.
[[clang::export_name("argument")]] char* Argument(std::size_t size)
{
    return TheModule().arguments.emplace_back(size, '\0').data();
}

[[clang::export_name("result")]] const char* Result(std::size_t index)
{
    return TheModule().results[index].data();
}

[[clang::export_name("resultSize")]] std::size_t ResultSize(std::size_t index)
{
    return TheModule().results[index].size();
}

// Takes the name of a file that hasn't been read yet.
[[clang::export_name("admit")]] int Admit(double size)
{
    const std::string name = TakeArguments()[0];
    if (!FormOf(name))
        return Refuse(name + ": " + kNoForm);
    return size > static_cast<double>(kLargestInput) ? Refuse(name + ": " + kTooLarge) : Return({});
}

// Takes name, bytes and maybe the content of the .sum file. Returns the number of the file.
[[clang::export_name("open")]] int Open()
{
    Texts arguments = TakeArguments();
    std::optional<std::string> sumText;
    if (arguments.size() > 2)
        sumText = std::move(arguments[2]);
    const ImageForm form = FormOf(arguments[0]).value_or(ImageForm::Hex);
    Opened opened = {std::move(arguments[0]),
                     ParseImage(form, std::move(arguments[1]), sumText, Severity::Error),
                     std::nullopt};
    const int number = TheModule().nextFile++;
    TheModule().files.emplace(number, std::move(opened));
    return number;
}

[[clang::export_name("close")]] void Close(int number)
{
    TheModule().files.erase(number);
}

// The findings and a summary as JSON lines, and the picture.
[[clang::export_name("check")]] int Check(int number)
{
    const auto& [name, file, image] = File(number);
    return Return({CheckJson(name, file, true), PictureJson(DrawImage(file.hexText, file.report))});
}

[[clang::export_name("checkText")]] int CheckText(int number)
{
    const auto& [name, file, image] = File(number);
    return Return({FindingsText(name, file.report, true) + SummaryText(name, file, true)});
}

[[clang::export_name("checkSvg")]] int CheckSvg(int number)
{
    const Opened& opened = File(number);
    const Picture picture = DrawImage(opened.file.hexText, opened.file.report);
    return Return({PictureSvg(picture, opened.Title())});
}

// Rows of bytes.
[[clang::export_name("bytes")]] int Bytes(int number, std::uint32_t first, std::uint32_t count)
{
    const Image& image = File(number).Bytes();
    Texts rows;
    for (std::uint32_t i = 0; i < count; ++i)
        rows.push_back(RowText(image, first + i * Comparison::kRowSize));
    return Return(std::move(rows));
}

// The name and the bytes of a file for a medium and, where it has one, of its .sum file.
[[clang::export_name("prepare")]] int Prepare(int number)
{
    const Opened& opened = File(number);
    if (const std::string reason = Obstacle(opened); !reason.empty())
        return Refuse(reason);
    MediumFile medium = MakeMediumFile(opened.file);
    const std::string name = medium.Name();
    if (medium.form != ImageForm::Rlg)
        return Return({name, std::move(medium.bytes)});
    std::string sum = SumLine(medium.bytes, name);
    return Return(
        {name, std::move(medium.bytes), WithExtension(name, kSumExtension), std::move(sum)});
}

// The differences as JSON lines and as text, and the picture, also as a document.
[[clang::export_name("compare")]] int Compare(int left, int right)
{
    const Opened& a = File(left);
    const Opened& b = File(right);
    for (const Opened* opened : {&a, &b}) {
        if (const std::string reason = Obstacle(*opened); !reason.empty())
            return Refuse(reason);
    }
    const Comparison comparison = Compare(a.file.hexText, b.file.hexText);
    const Picture picture = DrawComparison(a.file.hexText, b.file.hexText, comparison);
    return Return({ComparisonJson(comparison), ComparisonText(comparison, a.file, b.file),
                   PictureJson(picture), PictureSvg(picture, "A: " + a.name + "   B: " + b.name)});
}

// Takes a text of the unit. Its cause and what to do, where it means a failure.
[[clang::export_name("advise")]] int Advise()
{
    const Advice* const advice = AdviceFor(TakeArguments()[0]);
    return advice == nullptr ? Return({})
                             : Return({std::string(advice->cause), std::string(advice->next)});
}

// What each exit status of the tool means, from 0.
[[clang::export_name("statuses")]] int Statuses()
{
    Texts texts;
    for (const StatusMeaning& each : kStatusMeanings)
        texts.emplace_back(each.text);
    return Return(std::move(texts));
}

}  // extern "C"
