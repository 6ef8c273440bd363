#include <climits>
#include <cstring>

#include <gtest/gtest.h>

#include "Hex.h"
#include "TextRows.h"

TEST(Hex, WritesUpperCaseDigits)
{
    char byte[] = "xxx";
    CharToHex(0xAF, byte);
    EXPECT_STREQ(byte, "AFx");
    ExpectTexts({
        {"filled", UIntToSHex(255, 4), "00FF"},
        {"cut", UIntToSHex(255, 1), "F"},
        {"all 32 bits", UIntToSHex(0x90040400, 8), "90040400"},
        {"more than 8 digits", UIntToSHex(UINT_MAX, 10), "00FFFFFFFF"},
        {"width 0", UIntToSHex(255, 0), ""},
        {"width below 0", UIntToSHex(255, -1), ""},
    });
    char field[5] = "xxxx";
    EXPECT_TRUE(UIntToHex(0x1A2B, field, 3));
    EXPECT_STREQ(field, "A2B");
}

TEST(Hex, ReadsABadDigitOfAByteAsZeroOnItsOwn)
{
    const struct {
        const char* text;
        int value;
    } rows[] = {{"A0", 0xA0}, {"a0", 0}, {"0a", 0}, {"Fx", 0xF0}, {"x9", 9}, {"@G", 0}, {"/:", 0}};
    for (const auto& row : rows)
        EXPECT_EQ(HexToChar(row.text), row.value) << row.text;
}

TEST(Hex, ReadsAFieldWithABadDigitAsZeroAsAWhole)
{
    const struct {
        const char* text;
        int length;
        unsigned int value;
    } rows[] = {{"af", 0, 0xAF},
                {"Ff", 2, 255},
                {"1234", 2, 0x12},
                {"0G", 2, 0},
                {"1", 2, 0},
                {"1 ", 0, 0},
                {"", 0, 0},
                {"12", -1, 0x12},
                {"9004040g", 7, 0x9004040},
                {"123456789", 9, 0x23456789}};
    for (const auto& row : rows) {
        EXPECT_EQ(HexToUInt(row.text, row.length), row.value) << row.text;
        EXPECT_EQ(SHexToUInt(row.text, row.length), row.value) << row.text;
    }
}

TEST(Compare, LooksFromTheFirstToTheLastIndex)
{
    EXPECT_TRUE(strcompare("Start READ\r\n", "Start READ", 0, 9));
    EXPECT_FALSE(strcompare("Start REAL", "Start READ", 0, 9));
    EXPECT_TRUE(strcompare("xbcx", "abcd", 1, 2));
    EXPECT_TRUE(strcompare("a", "b", 1, 0)) << "no index at all";
    EXPECT_FALSE(strcompare("St", "Start READ", 0, 9)) << "a shorter text";
    EXPECT_FALSE(strcompare("a\0b", "a\0c", 0, 2)) << "a NUL is a byte like others";
}
