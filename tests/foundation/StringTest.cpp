#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "Number.h"
#include "TSString.h"
#include "TextRows.h"

TEST(String, IsMadeFromNumbersAndTexts)
{
    ExpectTexts({
        {"null", TSString(nullptr), ""},
        {"unsigned", TSString(4294967295U), "4294967295"},
        {"zero", TSString(0), "0"},
        {"lowest int", TSString(INT_MIN), "-2147483648"},
        {"width fills with zeros", TSString(5, 3), "005"},
        {"width drops high digits", TSString(123, 2), "23"},
        {"width 0", TSString(123, 0), ""},
        {"width reads the bits as unsigned", TSString(-1, 2), "95"},
        {"negative width", TSString(-5, -1), "-5"},
        {"limit within the text", TSString("abcdef", 3), "abc"},
        {"limit below 0", TSString("abc", -1), ""},
    });
    const char unterminated[] = {'a', 'b'};
    EXPECT_STREQ(TSString(unterminated, 2).c_str(), "ab");
}

TEST(String, BufferFormHasItsLengthAtOnceAndCopiesByItsText)
{
    TSString buffer(nullptr, 3);
    EXPECT_EQ(buffer.Length(), 3);
    EXPECT_STREQ(buffer.c_str(), "");

    EXPECT_EQ(TSString(buffer).Length(), 0);

    std::memcpy(static_cast<char*>(buffer), "abc", 4);
    EXPECT_EQ(TSString(buffer).Length(), 3);
    EXPECT_EQ(TSString(nullptr, -1).Length(), 0);
}

TEST(String, AssignsAndJoinsAlsoWithPartsOfItself)
{
    TSString text("abc");
    const TSString& same = text;
    text = same;
    EXPECT_STREQ(text.c_str(), "abc");
    text = text.c_str() + 1;
    EXPECT_STREQ(text.c_str(), "bc");
    text += text;
    EXPECT_STREQ(text.c_str(), "bcbc");
    EXPECT_STREQ(text.Insert(text, 2).c_str(), "bbcbccbc");
    EXPECT_STREQ((TSString("") + "" + "x" + TSString(1)).c_str(), "x1");
    TSString copy(text);
    copy[0] = 'X';
    EXPECT_EQ(text[0], 'b');
    EXPECT_EQ(text[text.Length()], '\0');
    text = nullptr;
    EXPECT_STREQ(text.c_str(), "");
}

TEST(String, ComparesBytesWithPlainTexts)
{
    EXPECT_TRUE(TSString("abc") == "abc");
    EXPECT_TRUE(TSString("abc") != "ABC");
    EXPECT_FALSE(TSString("abc") == "ab");
    EXPECT_FALSE(TSString("") != "");
}

TEST(String, PrintsItselfAndALineEndOnlyIfAsked)
{
    testing::internal::CaptureStdout();
    TSString("100%s").Print(false);
    TSString("line\n").Print(true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "100%sline\n\n");
}

TEST(String, EditsByPositionsFromOne)
{
    const TSString five("abcde");
    ExpectTexts({
        {"delete to the end", TSString(five).Delete(2, 100), "a"},
        {"delete in the middle", TSString(five).Delete(2, 3), "ae"},
        {"delete at position 0", TSString(five).Delete(0, 1), "bcde"},
        {"delete at the lowest position", TSString(five).Delete(INT_MIN, INT_MAX), ""},
        {"delete behind the text", TSString(five).Delete(100, 1), "abcde"},
        {"delete a negative count", TSString(five).Delete(2, INT_MIN), "abcde"},
        {"insert in the middle", TSString(five).Insert("XY", 3), "abXYcde"},
        {"insert far behind", TSString(five).Insert("X", INT_MAX), "abcdeX"},
        {"insert at a negative position", TSString(five).Insert("X", -5), "Xabcde"},
        {"can't grow", TSString(five).SetLength(100), "abcde"},
        {"length below 0", TSString(five).SetLength(-1), ""},
        {"part from the first", TSString(":0200000490046A").SubString(1, 9), ":02000004"},
        {"more than there is", five.SubString(1, INT_MAX), "abcde"},
        {"position below 1", five.SubString(INT_MIN, 2), "ab"},
        {"the last byte can't be had", five.SubString(5), ""},
        {"nor with a count", five.SubString(5, 1), ""},
        {"behind the text", five.SubString(INT_MAX, 1), ""},
        {"count below 0", five.SubString(2, -1), ""},
    });
}

TEST(String, RemovesAndChangesBytes)
{
    ExpectTexts({
        {"trim both ends", TSString("\t\x01 a b\r\n").Trim(), "a b"},
        {"trim leaves high bytes", TSString(" \x80\xA0 ").Trim(), "\x80\xA0"},
        {"strip a set", TSString("-1:2:-3").Strip(":-"), "123"},
        {"strip nothing", TSString("abc").Strip(""), "abc"},
        {"lower", TSString("@AZ[\x83\x41").LowerCase(), "@az[\x83\x61"},
        {"upper", TSString("`az{\x83\x61").UpperCase(), "`AZ{\x83\x41"},
        {"lower outside pairs",
         TSString("A\x83\x41\x83\x41"
                  "A\xB1"
                  "A\xFC\x41")
             .LowerCaseSJIS(),
         "a\x83\x41\x83\x41"
         "a\xB1"
         "a\xFC\x41"},
        {"upper outside pairs", TSString("a\x81\x61z").UpperCaseSJIS(), "A\x81\x61Z"},
        {"double all", TSString("'a\\\x83\x5C\"").SQLString(1), "''a\\\\\x83\x5C\x5C\""},
        {"double outside pairs", TSString("'a\\\x83\x5C'").SQLString(0), "''a\\\\\x83\x5C''"},
    });
}

TEST(String, KeepsItsLengthThroughEveryEdit)
{
    TSString text(" Some:Text ");
    text.Trim().Strip(":").Delete(1, 1).Insert("AB", 3).LowerCase().SQLString(1) += "!";
    EXPECT_STREQ(text.c_str(), "omabetext!");
    EXPECT_EQ(text.Length(), 10);
    EXPECT_EQ(text.Strip("o!").Length(), 8);
    EXPECT_EQ(text.SetLength(4).Length(), 4);
}

TEST(String, FindsTheFirstOccurrence)
{
    const struct {
        const char *text, *sought;
        int position, positionOutsidePairs;
    } rows[] = {{"abcabc", "c", 3, 3},
                {"abc", "abc", 1, 1},
                {"abc", "abcd", 0, 0},
                {"abc", "", 1, 1},
                {"", "", 1, 1},
                {"", "a", 0, 0},
                {"\x83\x5C\x5C", "\\", 2, 3},
                {"a\x83\x41", "\x83\x41", 2, 2},
                {"\x83\x41", "A", 2, 0},
                {"\xB1\x41", "A", 2, 2}};
    for (const auto& row : rows) {
        EXPECT_EQ(TSString(row.text).AnsiPos(row.sought), row.position) << row.text;
        EXPECT_EQ(TSString(row.text).AnsiPosSJIS(row.sought), row.positionOutsidePairs) << row.text;
    }
}

TEST(String, ReadsNumbersThatAreAllDigits)
{
    const struct {
        const char* text;
        int value;
        long long longValue;
    } rows[] = {{"12", 12, 12}, {"-12", -12, 0}, {"12a", 0, 0}, {" 12", 0, 0},
                {"1-2", 0, 0},  {"12\n", 0, 0},  {"+1", 0, 0},  {"", 0, 0},
                {"-", 0, 0},    {"--1", 0, 0},   {"007", 7, 7}};
    for (const auto& row : rows) {
        EXPECT_EQ(TSString(row.text).ToInt(), row.value) << row.text;
        EXPECT_EQ(TSString(row.text).ToLongLongInt(), row.longValue) << row.text;
    }
    EXPECT_EQ(TSString("9223372036854775807").ToLongLongInt(), LLONG_MAX);
}

TEST(Number, WritesDecimalDigits)
{
    const struct {
        long long value;
        const char *digits, *text;
    } rows[] = {{0, "0", "0"},
                {10, "10", "10"},
                {-5, "5", "-5"},
                {INT_MIN, "2147483648", "-2147483648"},
                {9999999999, "9999999999", "9999999999"},
                {LLONG_MIN, "6854775808", "-6854775808"}};
    for (const auto& row : rows) {
        char text[kIntTextSize];
        EXPECT_EQ(UIntToStr(row.value, text), static_cast<int>(std::strlen(row.digits)));
        EXPECT_STREQ(text, row.digits);
        EXPECT_EQ(IntToStr(row.value, text), static_cast<int>(std::strlen(row.text)));
        EXPECT_STREQ(text, row.text);
    }
    char text[] = "xxxx";
    EXPECT_TRUE(UIntToStr(123U, text, -1));
    EXPECT_STREQ(text, "");
}
