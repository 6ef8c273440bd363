#pragma once

#include <cstdint>

#include "Hex.h"

// The fields of one Intel HEX record, read where it lies as text. In upper-case digits (a
// lower-case one reads as 0):
//
//    0   1       3         5        7      9              9 + 2 * count
//   +---+-------+---------+--------+------+--------------+----------+
//   | : | count | address | address| type | data         | checksum |
//   |   |       | high    | low    |      | [count]      |          |
//   +---+-------+---------+--------+------+--------------+----------+
//
// The checksum makes the 8-bit sum of all the record's bytes 0. The record ends where the text
// does, or at the line end that it may still have.
class HexRecord {
public:
    // The types that are understood; any other byte can stand in a record.
    static constexpr unsigned char kData = 0;
    static constexpr unsigned char kEndOfFile = 1;
    static constexpr unsigned char kUpperAddress = 4;  // upper 16 bits of the addresses that follow

    // Where the fields begin.
    static constexpr int kCountAt = 1;
    static constexpr int kAddressAt = 3;
    static constexpr int kTypeAt = 7;
    static constexpr int kDataAt = 9;

    static constexpr int kLargestCount = 255;
    static constexpr int kUpperAddressCount = 2;

    explicit HexRecord(const char* record) : text(record) {}

    // True when the record has the characters that its address is made of. Data may be missing:
    // whoever sends a row that the CSP will refuse must still find it again.
    bool HasAddress() const
    {
        return Has(kDataAt) && (Type() != kUpperAddress || Has(DataAt(kUpperAddressCount)));
    }

    // True when it has the data that its count promises and its checksum, too.
    bool IsComplete() const { return HasAddress() && Has(DataAt(Count() + 1)); }

    // How many bytes of its data are there, at most as many as its count promises.
    int CountPresent() const { return (Length(DataAt(Count())) - kDataAt) / 2; }

    // The rest is for records that have what is read.

    unsigned char Count() const { return HexToChar(text + kCountAt); }
    unsigned char Type() const { return HexToChar(text + kTypeAt); }
    unsigned char Data(int index) const { return HexToChar(text + DataAt(index)); }

    std::uint32_t Address(std::uint32_t upper) const
    {
        return upper | Byte(kAddressAt) << 8U | Byte(kAddressAt + 2);
    }

    // The 32 bits to which an upper address sets the upper half.
    std::uint32_t UpperAddress() const { return Byte(DataAt(0)) << 24U | Byte(DataAt(1)) << 16U; }

    // Sums `summedCount` bytes of data, whatever the count, after which the checksum stands.
    bool IsChecksumGood(int summedCount) const
    {
        std::uint32_t sum = Byte(DataAt(Count()));
        for (int at = kCountAt; at < DataAt(summedCount); at += 2)
            sum += Byte(at);
        return sum % 0x100 == 0;
    }

private:
    static constexpr int DataAt(int index) { return kDataAt + 2 * index; }

    std::uint32_t Byte(int at) const { return HexToChar(text + at); }

    // The characters up to the record's end, counted to `limit`.
    int Length(int limit) const
    {
        int length = 0;
        while (length < limit && !IsEnd(text[length]))
            ++length;
        return length;
    }
    bool Has(int length) const { return Length(length) == length; }
    static bool IsEnd(char c) { return c == '\0' || c == '\r' || c == '\n'; }

    const char* text;
};
