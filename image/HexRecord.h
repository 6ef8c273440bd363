#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Hex.h"

// The fields of one Intel HEX record, read from its text, which has no line end. In upper-case
// digits (a lower-case one reads as 0):
//
//    0   1       3         5        7      9              9 + 2 * count
//   +---+-------+---------+--------+------+--------------+----------+
//   | : | count | address | address| type | data         | checksum |
//   |   |       | high    | low    |      | [count]      |          |
//   +---+-------+---------+--------+------+--------------+----------+
//
// The checksum makes the 8-bit sum of all the record's bytes 0.
class HexRecord {
public:
    // The types that are understood; any other byte can stand in a record.
    static constexpr unsigned char kData = 0;
    static constexpr unsigned char kEndOfFile = 1;
    static constexpr unsigned char kUpperAddress = 4;  // upper 16 bits of the addresses that follow

    // Where the fields begin.
    static constexpr std::size_t kCountAt = 1;
    static constexpr std::size_t kAddressAt = 3;
    static constexpr std::size_t kTypeAt = 7;
    static constexpr std::size_t kDataAt = 9;

    static constexpr std::size_t kLargestCount = 255;     // data bytes of any record
    static constexpr std::size_t kUpperAddressCount = 2;  // data bytes of an upper address

    explicit HexRecord(std::string_view record) : text(record) {}

    // True when the record has the characters that its address is made of. Data may be missing:
    // whoever sends a row that the CSP will refuse must still find it again.
    bool HasAddress() const
    {
        return text.size() >= kDataAt &&
               (Type() != kUpperAddress || text.size() >= DataAt(kUpperAddressCount));
    }

    // True when it has the data that its count promises and its checksum, too.
    bool IsComplete() const { return HasAddress() && text.size() >= DataAt(Count() + 1U); }

    // True when a complete record has nothing after its checksum.
    bool IsExact() const { return text.size() == DataAt(Count() + 1U); }

    // How many bytes of its data are there, at most as many as its count promises.
    std::size_t CountPresent() const
    {
        return std::min<std::size_t>(Count(), (text.size() - kDataAt) / 2);
    }

    // The rest is for records that have what is read.

    unsigned char Count() const { return HexToChar(text.data() + kCountAt); }
    unsigned char Type() const { return HexToChar(text.data() + kTypeAt); }
    unsigned char Data(std::size_t index) const { return HexToChar(text.data() + DataAt(index)); }

    std::uint32_t Address(std::uint32_t upper) const
    {
        return upper | Byte(kAddressAt) << 8U | Byte(kAddressAt + 2);
    }

    // The 32 bits to which an upper address sets the upper half.
    std::uint32_t UpperAddress() const { return Byte(DataAt(0)) << 24U | Byte(DataAt(1)) << 16U; }

    // The checksum is where the record's count puts it. `dataBytes` of data are added to it, which
    // are as many as the count says, except where the unit expects a fixed number.
    bool IsChecksumGood(std::size_t dataBytes) const
    {
        std::uint32_t sum = Byte(DataAt(Count()));
        for (std::size_t at = kCountAt; at < DataAt(dataBytes); at += 2)
            sum += Byte(at);
        return sum % 0x100 == 0;
    }

private:
    static constexpr std::size_t DataAt(std::size_t index) { return kDataAt + 2 * index; }

    std::uint32_t Byte(std::size_t at) const { return HexToChar(text.data() + at); }

    std::string_view text;  // need not have a NUL after it
};
