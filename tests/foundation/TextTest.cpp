#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "Text.h"
#include "TextRows.h"

using Line = std::string;  // which lets a helper change its bytes

TEST(Text, IsCutInPlace)
{
    ExpectTexts({
        {"chop at CR", chop(Line("ab\rc\nd").data()), "ab"},
        {"chop at LF", chop(Line("ab\nc\rd").data()), "ab"},
        {"skip all white space", skipspace(Line(" \t\v\f\r\nab ").data()), "ab "},
        {"skip no high byte", skipspace(Line("\xA0 a").data()), "\xA0 a"},
        {"comment alone", uncomment(Line("#c").data()), ""},
    });
    EXPECT_EQ(chop(nullptr), nullptr);
    EXPECT_EQ(skipspace(nullptr), nullptr);
    EXPECT_EQ(uncomment(nullptr), nullptr);
}

TEST(Text, SplitsOffItsFirstWord)
{
    for (const char* separator : {" ", "\f", "\n", "\r", "\t", "\v"}) {
        Line line = std::string("a") + separator + " c";
        EXPECT_STREQ(cdr(Line(line).data()), " c");
        char* rest = line.data();
        EXPECT_STREQ(car(&rest), "a");
        EXPECT_STREQ(rest, " c");
    }
    Line line("word");
    char* rest = line.data();
    EXPECT_STREQ(car(&rest), "word");
    EXPECT_EQ(rest, nullptr);
    EXPECT_EQ(cdr(line.data()), nullptr);
}

TEST(Text, ChangesCaseIntoATargetOrInPlace)
{
    char target[8];
    Line mixed("aB1\xB1");
    EXPECT_STREQ(mystrtolower(mixed.data(), target), "ab1\xB1");
    EXPECT_EQ(mixed, "aB1\xB1");
    EXPECT_STREQ(str_up_low(mixed.data(), target, 0), "ab1\xB1");
    EXPECT_EQ(mystrtoupper(mixed.data(), nullptr), mixed.data());
    EXPECT_EQ(mixed, "AB1\xB1");
}

TEST(Text, AppendsOnlyWhatFits)
{
    const struct {
        const char *target, *source;
        int size;
        const char* expected;
    } rows[] = {{"ab", "cd", 8, "abcd"}, {"ab", "cdef", 5, "abcd"}, {"abcd", "e", 5, "abcd"},
                {"ab", "cd", 2, "ab"},   {"ab", "cd", 0, "ab"},     {"ab", "cd", -1, "ab"},
                {"", "", 1, ""}};
    for (const auto& row : rows) {
        char target[8] = "";
        std::snprintf(target, sizeof target, "%s", row.target);
        EXPECT_EQ(mystrcat(target, row.source, row.size), target);
        EXPECT_STREQ(target, row.expected) << row.size;
    }
}

TEST(Text, EscapesQuotesWithinALimit)
{
    const struct {
        const char* source;
        int limit;
        const char* expected;
    } rows[] = {{"abcdef", 3, "abc"}, {"a'b\"c", 99, "a\\'b\\\"c"},
                {"'x", 3, "\\'x"},    {"a'b", 3, "a"},
                {"''", 5, "\\'\\'"},  {"''", 4, "\\'"},
                {"ab", 0, ""},        {"", 5, ""}};
    for (const auto& row : rows) {
        char target[16] = "untouched";
        EXPECT_EQ(mystr_escquote(row.source, target, row.limit),
                  static_cast<int>(std::strlen(row.expected)));
        EXPECT_STREQ(target, row.expected);
    }
    char target[] = "untouched";
    EXPECT_EQ(mystr_escquote("ab", target, -1), 0);
    EXPECT_STREQ(target, "untouched");
}

TEST(Text, LosesItsBlanksAnywhereToNuls)
{
    char text[] = " a\tb\x80 c ";
    trimleft(text, 7);
    EXPECT_EQ(std::string(text, 8), std::string("\0a\0b\x80\0c ", 8));
    trimleft(text, -1);
    EXPECT_EQ(text[7], ' ');
}

TEST(Text, TurnsIntoNumbersAndBack)
{
    EXPECT_EQ(StrToInt(" -12x"), -12);
    EXPECT_EQ(StrToInt("x"), 0);
    ExpectTexts({
        {"width and places", FormatFloat("5.2", 3.14159F), " 3.14"},
        {"any width", FormatFloat("300.1", 1.0F), (std::string(297, ' ') + "1.0").c_str()},
        {"no dot", FormatFloat("5", 1.0F), ""},
        {"dot first", FormatFloat(".2", 1.0F), ""},
        {"dot last", FormatFloat("5.", 1.0F), ""},
        {"another conversion", FormatFloat("5.2s%", 1.0F), ""},
        {"argument of its own", FormatFloat("*.2", 1.0F), ""},
        {"width over any int", FormatFloat("99999999999.2", 1.0F), ""},
    });
}

TEST(Text, IsCheckedForShiftJisPairs)
{
    for (const char* text :
         {"", "a\x7F", "\xA1\xDF", "\x81\x40", "\xFC\xFC", "\x9F\x80z", "a\xE0", "\x81\x81\x3F"})
        EXPECT_TRUE(is_SJIS(text)) << testing::PrintToString(text);
    for (const char* text :
         {"\x80", "\xA0", "\xFD", "\x81\x3F", "\x81\x7F", "\x81\xFD", "\x81\x81\x81\x3F"})
        EXPECT_FALSE(is_SJIS(text)) << testing::PrintToString(text);
}

TEST(Text, IsQuotedAsAValueOfAListWhereItMustBe)
{
    ExpectTexts({
        {"plain", DoubleQuoteString("a;b\x81\x83"), "a;b\x81\x83"},
        {"empty", DoubleQuoteString(""), ""},
        {"blank", DoubleQuoteString("a b"), "\"a b\""},
        {"single quote", DoubleQuoteString("'"), "\"'\""},
        {"double quote", DoubleQuoteString("\""), "\"\"\"\""},
        {"double quote late", DoubleQuoteString("a\"b"), "\"a\"\"b\""},
    });
}
