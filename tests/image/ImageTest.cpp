#include <algorithm>
#include <cstdlib>
#include <new>
#include <string>

#include <malloc.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Image.h"

using namespace std::string_literals;

namespace {

// The memory of this program in bytes, and the most since a test has set it.
std::size_t used = 0;
std::size_t mostUsed = 0;

std::string Base(std::size_t page)
{
    return Record(4, 0, {static_cast<char>(page >> 8U), static_cast<char>(page)}) + "\n";
}

}  // namespace

void* operator new(std::size_t size)
{
    void* const block = std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    used += malloc_usable_size(block);
    mostUsed = std::max(mostUsed, used);
    return block;
}

void operator delete(void* block) noexcept
{
    used -= malloc_usable_size(block);
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

TEST(Image, FindsBytesByAddressAndNoneElsewhere)
{
    const Image image(Base(0x9004) + Record(0, 0xFFFE, "ab") + "\n" + Base(0x9005) +
                      Record(0, 1, "cd\0"s) + "\r\n" + Base(0x9005) + Record(0, 0, "x") + "\n" +
                      Base(0x9007) + Record(0, 5, "e") + "\n" + Record(0, 6, "f"));
    std::string found;
    for (const std::uint32_t address :
         {0x9004FFFDU, 0x9004FFFEU, 0x9004FFFFU, 0x90050000U, 0x90050001U, 0x90050002U, 0x90050003U,
          0x90050004U, 0x9006FFFFU, 0x90070005U, 0x90070006U, 0U, 0xFFFFFFFFU}) {
        const std::int16_t byte = image.At(address);
        found += byte == Image::kNoData ? '-' : static_cast<char>(byte);
    }
    EXPECT_EQ(found, "-ab-cd\0--e---"s) << "bytes that go back and a cut line are left out";
    EXPECT_EQ(Image().At(0), Image::kNoData);
}

TEST(Image, TakesMemoryByItsDataHoweverScattered)
{
    const struct {
        std::size_t step, pages, size;
    } rows[] = {{0x10000, 0x10000, 1}, {0x400, 0x1000, 1}, {32, 100, 32}};
    for (const auto& row : rows) {
        std::string text;
        for (std::size_t page = 0; page < row.pages; ++page) {
            text += Base(page);
            for (std::size_t at = 0; at < 0x10000; at += row.step)
                text += Record(0, at, std::string(row.size, 'x')) + "\n";
        }
        const std::size_t before = used;
        mostUsed = used;
        const Image image(text);
        EXPECT_EQ(image.At(0), 'x');
        EXPECT_LE(mostUsed - before, 0x100000 + 4 * row.pages * (0x10000 / row.step) * row.size);
    }
}
