#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

// Calls `take` for each byte of data in the text of an Intel HEX file, in the order of the file.
// What is no complete line with a complete record is left out, and checksums aren't tested.
void ForEachByte(std::string_view hexText,
                 const std::function<void(std::uint32_t address, unsigned char byte)>& take);

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
