#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "HexRecord.h"

// Reads the bytes of data in the text of an Intel HEX file, in the order of the file. What is
// no complete line with a complete record is left out, and checksums aren't tested.
class ByteReader {
public:
    explicit ByteReader(std::string_view hexText) : rest(hexText) {}

    // Goes to the next byte, at first to the first one. False at the end.
    bool Next();

    // Of the byte.
    std::uint32_t Address() const { return record.Address(base) + index; }
    unsigned char Value() const { return record.Data(index); }

private:
    bool NextRecord();

    std::string_view rest;    // after the record
    HexRecord record{{}};     // a data record
    std::uint32_t base = 0;   // of its address
    std::uint32_t index = 0;  // of the byte in it
    std::uint32_t count = 0;  // bytes in it; 0 before the first one
};

// The bytes of an image by their addresses, in 4 bytes of memory each, however far apart they are.
class Image {
public:
    static constexpr std::int16_t kNoData = -1;  // at an address without a byte

    Image() = default;
    // From the text of a file without errors, in which addresses only rise. Of another one, bytes
    // that go back are left out.
    explicit Image(std::string_view hexText);

    // The byte there, or kNoData.
    std::int16_t At(std::uint32_t address) const;

private:
    struct Byte {
        std::uint16_t offset;  // in its page
        unsigned char value;
    };
    // 64 KiB of addresses, at least one of which has a byte.
    struct Page {
        std::uint32_t start;  // address
        std::uint32_t first;  // index of its first byte
    };

    void Put(std::uint32_t address, unsigned char value);

    std::vector<Page> pages;  // by address
    std::vector<Byte> bytes;  // by address
};
