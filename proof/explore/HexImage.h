#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The image that the walk's updates write, and where its rows lie in the flash. Both come from one
// table of numbers, so the places don't rest on anything that the program reads out of the text.
//
// It is sparse on purpose: few rows, no two alike, and yet blocks that end inside a page and on a
// 64 KiB boundary, a record that steps over a block's end, an empty row, a record without an
// address, and an end-of-file record that is left over behind the last block.
class HexImage {
public:
    HexImage();

    int RowCount() const { return static_cast<int>(rows.size()); }
    // As it goes out; empty for an empty row, which doesn't.
    const std::string& Text(int row) const { return rows[Index(row)].text; }
    // The address behind the row, and the upper address in force there; 0 for row -1.
    std::uint32_t Reached(int row) const { return row < 0 ? 0 : rows[Index(row)].reached; }
    std::uint32_t Upper(int row) const { return row < 0 ? 0 : rows[Index(row)].upper; }

    // The row with which sending goes on at an address: the first that reaches beyond it, or the
    // base record that stands just there. The number of rows when there is none.
    int RowFor(std::uint32_t address) const;
    // The last row of the block that this row opens.
    int EndOfBlock(int row) const;

    std::string FileText() const;

private:
    struct Row {
        std::string text;
        bool isBase;
        std::uint32_t upper;
        std::uint32_t reached;
    };

    static std::size_t Index(int row) { return static_cast<std::size_t>(row); }
    void Add(unsigned type, std::uint32_t address, const std::string& data);
    void AddBase(unsigned upper);
    // Bytes that no other row has.
    void AddData(std::uint32_t from, std::uint32_t to);
    void AddEmpty();

    std::vector<Row> rows;
    std::uint32_t reached = 0;
    std::uint32_t upperAddress = 0;
};

// One record without its line end.
std::string RecordText(unsigned type, std::uint32_t address, const std::string& data);
