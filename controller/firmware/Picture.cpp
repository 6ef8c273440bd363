#include "Picture.h"

#include <algorithm>
#include <array>
#include <map>

#include "HexFormat.h"
#include "Hexadecimal.h"
#include "Image.h"
#include "Printable.h"
#include "Text.h"

namespace {

constexpr std::uint32_t kPictureRow = 0x10000;
constexpr std::uint32_t kCellSize = Comparison::kCellSize;
constexpr std::uint32_t kCellsPerRow = kPictureRow / kCellSize;
constexpr std::uint32_t kKiB = 0x400;
constexpr unsigned char kErased = 0xFF;

constexpr CellKind kKinds[] = {
    {' ', false, "no data", "#ffffff", "#1b1b1b"},
    {'.', false, "erased (FF)", "#dddddd", "#3d3d3d"},
    {':', false, "up to a third", "#a3c0de", "#36597d"},
    {'+', false, "up to two thirds", "#5a8fc4", "#5f94c9"},
    {'#', false, "more", "#1d4f82", "#bcd8f3"},
    {'V', true, "version text", "#f0b000", "#f0b000"},
    {'!', true, "error", "#d01010", "#ff5a4a"},
    {'=', false, "equal", "#c3ccd6", "#45525f"},
    {'A', true, "only in A", "#f0b000", "#f0b000"},
    {'B', true, "only in B", "#2f8f4f", "#58c07c"},
    {'x', true, "different", "#d01010", "#ff5a4a"},
};
constexpr std::string_view kShades = ".:+#";
constexpr std::string_view kImageCells = " .:+#V!";
constexpr std::string_view kComparisonCells = " =ABx";

// How many bytes the cells of a row have.
struct Density {
    std::array<std::uint32_t, kCellsPerRow> data = {};
    std::array<std::uint32_t, kCellsPerRow> written = {};  // those that aren't erased
};
struct Densities {
    std::map<std::uint32_t, Density> rows;  // by their addresses
    bool areCut = false;                    // there are more rows

    // Null for a row too many.
    Density* RowAt(std::uint32_t start)
    {
        const auto known = rows.find(start);
        if (known != rows.end())
            return &known->second;
        if (rows.size() < Picture::kMostRows)
            return &rows[start];
        areCut = true;
        return nullptr;
    }
};

void AddDensity(std::string_view hexText, Densities& densities)
{
    std::uint32_t start = 0;
    Density* row = nullptr;  // most bytes are in the row of the last one
    for (ByteReader reader(hexText); reader.Next();) {
        const std::uint32_t offset = reader.Address() % kPictureRow;
        if (row == nullptr || reader.Address() - offset != start) {
            start = reader.Address() - offset;
            row = densities.RowAt(start);
        }
        if (row == nullptr)
            continue;
        ++row->data[offset / kCellSize];
        row->written[offset / kCellSize] += reader.Value() == kErased ? 0 : 1;
    }
}

char ShadeOf(std::uint32_t data, std::uint32_t written)
{
    constexpr std::uint32_t kThird = kCellSize / 3 + 1;
    if (data == 0)
        return ' ';
    return written == 0 ? kShades[0] : kShades[1 + std::min(written, kCellSize) / kThird];
}

char EqualOf(std::uint32_t data, std::uint32_t)
{
    return data == 0 ? ' ' : '=';
}

// Between a row and the one that starts at `address`; empty where that follows.
std::string GapText(const std::vector<PictureRow>& rows, std::uint32_t address)
{
    const std::uint32_t end = rows.empty() ? address : rows.back().address + kPictureRow;
    return end == address ? std::string() : Grouped((address - end) / kKiB) + " KiB without data";
}

Picture DrawDensities(const Densities& densities, char (*cellOf)(std::uint32_t, std::uint32_t))
{
    Picture picture;
    picture.isCut = densities.areCut;
    for (const auto& [address, density] : densities.rows) {
        std::string cells;
        for (std::uint32_t i = 0; i < kCellsPerRow; ++i)
            cells += cellOf(density.data[i], density.written[i]);
        picture.rows.push_back({address,
                                cells,
                                GapText(picture.rows, address),
                                {density.data.begin(), density.data.end()}});
    }
    return picture;
}

// Only where there is a row: a finding about an address without data has no place in the picture.
void Mark(Picture& picture, std::uint32_t address, char with)
{
    const std::uint32_t start = address - address % kPictureRow;
    const auto row = std::lower_bound(
        picture.rows.begin(), picture.rows.end(), start,
        [](const PictureRow& each, std::uint32_t wanted) { return each.address < wanted; });
    if (row != picture.rows.end() && row->address == start)
        row->cells[address % kPictureRow / kCellSize] = with;
}

// Of the SVG document, in its units.
constexpr int kCellWidth = 11;
constexpr int kCellHeight = 15;
constexpr int kMargin = 12;
constexpr int kLeft = 90;
constexpr int kTitleAt = 24;
constexpr int kScaleAt = 48;
constexpr int kTop = 56;
constexpr int kRowHeight = kCellHeight + 3;
constexpr int kSwatchWidth = 155;
constexpr int kSwatchHeight = kRowHeight + 4;
constexpr int kSwatchesPerRow = 5;
constexpr std::uint32_t kScaleStep = 16;  // cells between two marks of the scale

// A byte above ASCII becomes the character of the same number; control characters are no XML.
std::string Escaped(std::string_view text)
{
    std::string escaped;
    for (const unsigned char byte : text) {
        const bool isPlain = IsPrintable(byte) && byte != '&' && byte != '<';
        if (isPlain)
            escaped += static_cast<char>(byte);
        else
            escaped += byte < ' ' ? "?" : "&#" + std::to_string(byte) + ";";
    }
    return escaped;
}

std::string Attribute(const char* name, int value)
{
    return std::string(" ") + name + "=\"" + std::to_string(value) + "\"";
}

std::string SvgText(int x, int y, std::string_view text, const char* more = "")
{
    return "<text" + Attribute("x", x) + Attribute("y", y) + more + ">" + Escaped(text) +
           "</text>\n";
}

// A name for the cell's kind in the style sheet.
std::string ClassOf(char cell)
{
    return "c" + std::to_string(&KindOf(cell) - kKinds);
}

std::string SvgCell(int x, int y, char cell, const std::string& hover)
{
    std::string svg = "<g><title>" + Escaped(hover) + "</title><rect class=\"" + ClassOf(cell) +
                      "\"" + Attribute("x", x) + Attribute("y", y) +
                      Attribute("width", kCellWidth - 1) + Attribute("height", kCellHeight) + "/>";
    if (KindOf(cell).isLettered)
        svg += SvgText(x + kCellWidth / 2, y + kCellHeight - 4, std::string_view(&cell, 1),
                       " class=\"mark\"");
    return svg + "</g>\n";
}

std::string StyleSheet(std::string_view used, const char* CellKind::*colour)
{
    std::string style;
    for (const char cell : used)
        style += "." + ClassOf(cell) + "{fill:" + KindOf(cell).*colour + "}";
    return style;
}

std::string SvgHead(const Picture& picture, int width, int height)
{
    const std::string size = std::to_string(width) + " " + std::to_string(height);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\"" + Attribute("width", width) +
           Attribute("height", height) + " viewBox=\"0 0 " + size +
           "\" font-family=\"monospace\" font-size=\"12\">\n<style>\n"
           ".page{fill:#ffffff}text{fill:#202020}rect{stroke:#b8b8b8;stroke-width:.5}" +
           StyleSheet(picture.used, &CellKind::onLight) +
           "\n.mark{fill:#000000;font-size:10px;font-weight:bold;text-anchor:middle}"
           ".quiet{fill:#606060}\n@media screen and (prefers-color-scheme:dark){"
           ".page{fill:#121212}text{fill:#e4e4e4}rect{stroke:#585858}.quiet{fill:#a8a8a8}" +
           StyleSheet(picture.used, &CellKind::onDark) +
           ".mark{fill:#000000}}\n</style>\n<rect class=\"page\" width=\"100%\" "
           "height=\"100%\"/>\n";
}

// How far each column is from the address of its row.
std::string SvgScale()
{
    std::string svg;
    for (std::uint32_t i = 0; i < kCellsPerRow; i += kScaleStep)
        svg += SvgText(kLeft + static_cast<int>(i) * kCellWidth, kScaleAt,
                       "+" + EightDigits(i * kCellSize).substr(4), " class=\"quiet\"");
    return svg;
}

std::string SvgRow(const PictureRow& row, int y)
{
    std::string svg = SvgText(kMargin, y + kCellHeight - 3, EightDigits(row.address));
    for (std::uint32_t i = 0; i < row.cells.size(); ++i) {
        const std::uint32_t start = row.address + i * kCellSize;
        svg += SvgCell(kLeft + static_cast<int>(i) * kCellWidth, y, row.cells[i],
                       EightDigits(start) + " to " + EightDigits(start + kCellSize - 1) + ": " +
                           KindOf(row.cells[i]).text);
    }
    return svg;
}

std::string SvgLegend(std::string_view used, int y)
{
    std::string svg;
    for (std::size_t i = 0; i < used.size(); ++i) {
        const int x = kMargin + static_cast<int>(i % kSwatchesPerRow) * kSwatchWidth;
        const int top = y + static_cast<int>(i / kSwatchesPerRow) * kSwatchHeight;
        const CellKind& kind = KindOf(used[i]);
        svg += SvgCell(x, top, kind.cell, kind.text) +
               SvgText(x + kCellWidth + 5, top + kCellHeight - 3, kind.text);
    }
    return svg;
}

}  // namespace

const CellKind& KindOf(char cell)
{
    return *std::find_if(std::begin(kKinds), std::end(kKinds) - 1,
                         [cell](const CellKind& kind) { return kind.cell == cell; });
}

Picture DrawImage(std::string_view hexText, const HexReport& report)
{
    Densities rows;
    AddDensity(hexText, rows);
    Picture picture = DrawDensities(rows, ShadeOf);
    picture.used = kImageCells;
    if (!report.version.empty())
        Mark(picture, kVersionAddress, 'V');
    for (const Finding& finding : report.findings) {
        if (finding.severity == Severity::Error && finding.address)
            Mark(picture, *finding.address, '!');
    }
    return picture;
}

Picture DrawComparison(std::string_view left, std::string_view right, const Comparison& comparison)
{
    Densities rows;
    AddDensity(left, rows);
    AddDensity(right, rows);
    Picture picture = DrawDensities(rows, EqualOf);
    picture.used = kComparisonCells;
    constexpr char kMarks[] = {'A', 'B', 'x'};
    for (const auto& [start, side] : comparison.cells)
        Mark(picture, start, kMarks[static_cast<std::size_t>(side)]);
    return picture;
}

std::string PictureText(const Picture& picture)
{
    if (picture.rows.empty())
        return {};
    std::string text;
    for (const PictureRow& row : picture.rows) {
        if (!row.gap.empty())
            text += "  ...      " + row.gap + "\n";
        text += "  " + EightDigits(row.address) + " |" + row.cells + "|\n";
    }
    if (picture.isCut)
        text += "  ...      more data\n";
    text += "  one character per KiB:";
    for (const char cell : picture.used.substr(1))
        text += std::string(cell == picture.used[1] ? " " : ", ") + cell + " " + KindOf(cell).text;
    return text + "\n";
}

std::string PictureSvg(const Picture& picture, std::string_view title)
{
    std::string svg;
    int y = kTop;
    for (const PictureRow& row : picture.rows) {
        if (!row.gap.empty()) {
            svg += SvgText(kLeft, y + kCellHeight - 3, row.gap, " class=\"quiet\"");
            y += kRowHeight;
        }
        svg += SvgRow(row, y);
        y += kRowHeight;
    }
    if (picture.isCut) {
        svg += SvgText(kLeft, y + kCellHeight - 3, "more data", " class=\"quiet\"");
        y += kRowHeight;
    }
    svg += SvgText(kMargin, y + kRowHeight, "one cell per KiB, one row per 64 KiB") +
           SvgLegend(picture.used, y + kRowHeight + kMargin);
    const int width = kLeft + static_cast<int>(kCellsPerRow) * kCellWidth + kMargin;
    const int swatchRows =
        (static_cast<int>(picture.used.size()) + kSwatchesPerRow - 1) / kSwatchesPerRow;
    const int height = y + (1 + swatchRows) * kSwatchHeight + 2 * kMargin;
    return SvgHead(picture, width, height) + SvgText(kMargin, kTitleAt, title) + SvgScale() + svg +
           "</svg>\n";
}
