#include "HexImage.h"

#include <cstddef>

namespace {

constexpr std::uint32_t kBlockSize = 0x2000;

constexpr unsigned kData = 0;
constexpr unsigned kEndOfFile = 1;
constexpr unsigned kBase = 4;
constexpr unsigned kProgramStart = 5;

void AddByte(std::string& text, unsigned byte)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    text += kDigits[byte >> 4U & 0xFU];
    text += kDigits[byte & 0xFU];
}

}  // namespace

std::string RecordText(unsigned type, std::uint32_t address, const std::string& data)
{
    std::string bytes{static_cast<char>(data.size()), static_cast<char>(address >> 8U),
                      static_cast<char>(address), static_cast<char>(type)};
    bytes += data;
    std::string text = ":";
    unsigned sum = 0;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        AddByte(text, byte);
        sum += byte;
    }
    AddByte(text, 0U - sum);
    return text;
}

HexImage::HexImage()
{
    AddBase(0x9004);
    AddData(0x1FF8, 0x2000);
    AddData(0x3FF4, 0x3FFC);
    AddData(0x3FFC, 0x4000);
    AddData(0x5000, 0x5004);
    AddEmpty();
    AddData(0x5FFC, 0x6004);  // over the end of a block
    AddData(0xFFF0, 0x10000);
    AddBase(0x9005);
    AddData(0x1FFC, 0x2000);
    AddData(0x2000, 0x2008);
    Add(kProgramStart, 0, std::string("\x90\x05\x00\x00", 4));
    AddData(0x3FF0, 0x4000);
    Add(kEndOfFile, 0, "");
}

int HexImage::RowFor(std::uint32_t address) const
{
    for (int row = 0; row < RowCount(); ++row) {
        const Row& each = rows[Index(row)];
        if (each.reached > address || (each.isBase && each.reached == address))
            return row;
    }
    return RowCount();
}

// A base record never ends a block, though its address is a multiple of every block's size.
int HexImage::EndOfBlock(int row) const
{
    while (row + 1 < RowCount()) {
        const Row& each = rows[Index(row)];
        if (!each.isBase && each.reached % kBlockSize == 0)
            break;
        ++row;
    }
    return row;
}

std::string HexImage::FileText() const
{
    std::string text;
    for (const Row& row : rows)
        text += row.text + "\r\n";
    return text;
}

void HexImage::Add(unsigned type, std::uint32_t address, const std::string& data)
{
    rows.push_back({RecordText(type, address, data), type == kBase, upperAddress, reached});
}

void HexImage::AddBase(unsigned upper)
{
    upperAddress = upper << 16U;
    reached = upperAddress;
    Add(kBase, 0, {static_cast<char>(upper >> 8U), static_cast<char>(upper)});
}

void HexImage::AddData(std::uint32_t from, std::uint32_t to)
{
    std::string data;
    for (std::uint32_t at = from; at < to; ++at)
        data += static_cast<char>(16 * RowCount() + static_cast<int>(at % 16));
    reached = upperAddress + to;
    Add(kData, from, data);
}

void HexImage::AddEmpty()
{
    rows.push_back({"", false, upperAddress, reached});
}
