#include "Picture.h"

#include <algorithm>
#include <array>
#include <map>

#include "HexFormat.h"
#include "Hexadecimal.h"
#include "Image.h"

namespace {

constexpr std::uint32_t kRowSize = 0x10000;
constexpr std::uint32_t kCellSize = 0x400;
constexpr std::uint32_t kCellsPerRow = kRowSize / kCellSize;
constexpr unsigned char kErased = 0xFF;
constexpr char kShades[] = ".:+#";

// Of the SVG document, in its units.
constexpr int kCellWidth = 10;
constexpr int kCellHeight = 14;
constexpr int kLeft = 90;
constexpr int kTop = 40;

// A row's cells, by what is in them.
struct Density {
    std::array<std::uint32_t, kCellsPerRow> data = {};
    std::array<std::uint32_t, kCellsPerRow> written = {};  // bytes that aren't erased ones
};

std::map<std::uint32_t, Density> DensityOf(std::string_view hexText)
{
    std::map<std::uint32_t, Density> rows;
    auto last = rows.end();  // most bytes are in the row of the last one
    ForEachByte(hexText, [&](std::uint32_t address, unsigned char byte) {
        const std::uint32_t start = address - address % kRowSize;
        if (last == rows.end() || last->first != start)
            last = rows.try_emplace(start).first;
        const std::uint32_t cell = address % kRowSize / kCellSize;
        ++last->second.data[cell];
        last->second.written[cell] += byte == kErased ? 0 : 1;
    });
    return rows;
}

char ShadeOf(std::uint32_t data, std::uint32_t written)
{
    if (data == 0)
        return ' ';
    if (written == 0)
        return kShades[0];
    constexpr std::uint32_t kThird = kCellSize / 3 + 1;
    return kShades[1 + std::min(written, kCellSize) / kThird];
}

const char* ColourOf(char cell)
{
    switch (cell) {
    case '.': return "#e8e8e8";
    case ':': return "#b0b0b0";
    case '+': return "#787878";
    case '#': return "#303030";
    case 'V': return "#1060d0";
    case '!': return "#d01010";
    default: return "none";
    }
}

// A byte above ASCII becomes the character of the same number; control characters are no XML.
std::string Escaped(const std::string& text)
{
    std::string escaped;
    for (const char c : text) {
        const auto value = static_cast<unsigned char>(c);
        const bool isPlain = value >= ' ' && value <= '~' && c != '&' && c != '<';
        const std::string number = "&#" + std::to_string(value) + ";";
        escaped += isPlain ? std::string(1, c) : value < ' ' ? "?" : number;
    }
    return escaped;
}

std::string SvgText(int x, int y, const std::string& text)
{
    return "<text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\">" +
           Escaped(text) + "</text>\n";
}

std::string SvgCell(std::size_t column, int y, char cell)
{
    const int x = kLeft + static_cast<int>(column) * kCellWidth;
    return "<rect x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" width=\"" +
           std::to_string(kCellWidth) + "\" height=\"" + std::to_string(kCellHeight - 2) +
           "\" fill=\"" + ColourOf(cell) + "\"/>\n";
}

}  // namespace

std::vector<PictureRow> Draw(std::string_view hexText, const HexReport& report)
{
    std::map<std::uint32_t, std::string> rows;
    const auto mark = [&](std::uint32_t address, char with) {
        std::string& row = rows[address - address % kRowSize];
        row.resize(kCellsPerRow, ' ');
        row[address % kRowSize / kCellSize] = with;
    };
    for (const auto& [start, density] : DensityOf(hexText)) {
        for (std::uint32_t i = 0; i < kCellsPerRow; ++i)
            mark(start + i * kCellSize, ShadeOf(density.data[i], density.written[i]));
    }
    if (!report.version.empty())
        mark(kVersionAddress, 'V');
    for (const Finding& finding : report.findings) {
        if (finding.severity == Severity::Error && finding.address)
            mark(*finding.address, '!');
    }
    std::vector<PictureRow> picture;
    picture.reserve(rows.size());
    for (const auto& [address, cells] : rows)
        picture.push_back({address, cells});
    return picture;
}

std::string PictureText(const std::vector<PictureRow>& rows)
{
    std::string text;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (i > 0 && rows[i].address - rows[i - 1].address != kRowSize)
            text += "  ...\n";
        text += "  " + EightDigits(rows[i].address) + " |" + rows[i].cells + "|\n";
    }
    return text;
}

std::string PictureSvg(const std::vector<PictureRow>& rows, const std::string& title)
{
    const int width = kLeft + static_cast<int>(kCellsPerRow) * kCellWidth + kCellWidth;
    const int height = kTop + static_cast<int>(rows.size() + 2) * kCellHeight;
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(width) +
                      "\" height=\"" + std::to_string(height) +
                      "\" font-family=\"monospace\" font-size=\"12\">\n" +
                      SvgText(kCellWidth, kTop / 2, title);
    int y = kTop;
    for (const PictureRow& row : rows) {
        svg += SvgText(kCellWidth, y + kCellHeight - 4, EightDigits(row.address));
        for (std::size_t i = 0; i < row.cells.size(); ++i)
            svg += SvgCell(i, y, row.cells[i]);
        y += kCellHeight;
    }
    return svg +
           SvgText(kCellWidth, y + kCellHeight,
                   "one row per 64 KiB; blue: version, red: error, grey: data by density") +
           "</svg>\n";
}
