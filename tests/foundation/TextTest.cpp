// Texts and the numbers and paths in them. 0x83 0x5C is one character of Shift-JIS whose second
// byte has the value of a backslash, 0x83 0x41 one whose second byte is that of an "A".
#include <climits>
#include <initializer_list>
#include <string>

#include <gtest/gtest.h>

#include "Hex.h"
#include "Number.h"
#include "Path.h"
#include "TSString.h"
#include "Text.h"

namespace {

using Line = std::string;  // its bytes may be changed

struct TextRow {
    const char* name;
    TSString result;
    const char* expected;
};

void ExpectTexts(std::initializer_list<TextRow> rows)
{
    for (const TextRow& row : rows)
        EXPECT_STREQ(row.result.c_str(), row.expected) << row.name;
}

}  // namespace

TEST(Hex, WritesUpperCaseReadsBadDigitsAsZeroAndComparesRange)
{
    char byte[] = "xxx";
    CharToHex(0xAF, byte);
    ExpectTexts({
        {"byte without NUL", byte, "AFx"},
        {"more than 8 digits", UIntToSHex(UINT_MAX, 10), "00FFFFFFFF"},
        {"width below 0", UIntToSHex(255, -1), ""},
    });
    EXPECT_TRUE(UIntToHex(0x1A2, byte, 2));
    EXPECT_STREQ(byte, "A2") << "cut";
    EXPECT_EQ(HexToChar("a9"), 9) << "first digit in lower case";
    EXPECT_EQ(HexToChar("Fx"), 0xF0) << "bad second digit";
    EXPECT_EQ(HexToChar("@G"), 0) << "neighbours of the letters";
    EXPECT_EQ(HexToChar("/:"), 0) << "neighbours of the digits";
    EXPECT_EQ(SHexToUInt("aF", 0), 0xAFU) << "all of the text";
    EXPECT_EQ(SHexToUInt("1g", 1), 1U) << "bad digit past the field";
    EXPECT_EQ(SHexToUInt("1", 2), 0U) << "field longer than the text";
    EXPECT_EQ(SHexToUInt("123456789", 9), 0x23456789U) << "9 digits";
    EXPECT_TRUE(strcompare("xbcx", "abcd", 1, 2)) << "from the first to the last index";
    EXPECT_FALSE(strcompare("a\0b", "a\0c", 0, 2)) << "a NUL is a byte like others";
}

TEST(Path, SplitsIntoDirectoryNameAndExtension)
{
    ExpectTexts({
        {"dot in a directory", ChangeFileExtSX("rel.old/img", ".bin"), "rel.bin"},
        {"dot in first place", ChangeFileExtSX(".hex", ".bin"), ".hex.bin"},
        {"extension", ExtractFileExtSX("/x.y/a.b.hex"), ".hex"},
        {"no extension", ExtractFileExtSX("img"), ""},
        {"pairs", ExtractFileNameSX("/\x80\\\x9F\\\xE0\\\xEF\\a"), "\x80\\\x9F\\\xE0\\\xEF\\a"},
        {"under the root", ExtractFileDirSX("/a.hex"), ""},
        {"drive keeps its colon", ExtractFileDirSX("c:a.hex"), "c:"},
    });
    for (const char* path : {"/mnt/a", "\x83\x5C\\a", "\x7F\\a", "\xA0\\a", "\xDF\\a", "\xF0\\a"})
        EXPECT_STREQ(ExtractFileNameSX(path).c_str(), "a") << path;
    char output[16] = "untouched";
    for (const char* path : {"", "a.d/", "a.d\\", "a.d:"}) {
        EXPECT_FALSE(ChangeFileExtX(path, ".bin", output) || ExtractFileExtX(path, output)) << path;
        EXPECT_FALSE(ExtractFileNameX(path, output)) << path;
        EXPECT_STREQ(output, "untouched") << path;
    }
}

TEST(String, ConvertsNumbersAndTexts)
{
    const char unterminated[] = {'a', 'b'};
    char digits[kIntTextSize];
    ExpectTexts({
        {"null", TSString(nullptr), ""},
        {"zero", TSString(0), "0"},
        {"width fills with zeros", TSString(5, 3), "005"},
        {"width reads the bits as unsigned", TSString(-1, 2), "95"},
        {"width 0", TSString(123, 0), ""},
        {"negative width", TSString(-5, -1), "-5"},
        {"limit", TSString(unterminated, 2), "ab"},
    });
    EXPECT_EQ(IntToStr(LLONG_MIN, digits), 11);
    EXPECT_STREQ(digits, "-6854775808") << "10 digits";
    EXPECT_TRUE(UIntToStr(123U, digits, -1));
    EXPECT_STREQ(digits, "");
    TSString buffer(nullptr, 3);
    EXPECT_STREQ(buffer.c_str(), "");
    EXPECT_EQ(buffer.Length(), 3) << "at once";
    EXPECT_EQ(TSString(buffer).Length(), 0) << "a copy is that of the text";
    EXPECT_EQ(TSString(nullptr, -1).Length(), 0);

    EXPECT_EQ(TSString("-007").ToInt(), -7);
    EXPECT_EQ(TSString("9223372036854775807").ToLongLongInt(), LLONG_MAX);
    for (const char* text : {"12a", "-a1", " 12", "+1", "-", "--1", ""})
        EXPECT_EQ(TSString(text).ToInt(), 0) << text;
    EXPECT_EQ(TSString("-12").ToLongLongInt(), 0);
    EXPECT_EQ(StrToInt(" -12x"), -12);
}

TEST(String, AssignsAndAppendsEvenPartsOfItself)
{
    TSString text("abc");
    const TSString& same = text;
    text = same;
    text = text.c_str() + 1;
    text += text;
    EXPECT_STREQ(text.c_str(), "bcbc");
    EXPECT_STREQ(text.Insert(text, 2).c_str(), "bbcbccbc");
    EXPECT_STREQ((TSString("") + "" + "x" + TSString(1)).c_str(), "x1");
    TSString copy(text);
    copy[0] = 'X';
    EXPECT_TRUE(copy == "Xbcbccbc" && text == "bbcbccbc");
    EXPECT_TRUE(copy != "Xbcbccb" && copy != "xbcbccbc");
    testing::internal::CaptureStdout();
    TSString("100%s").Print(false);
    TSString("line\n").Print(true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "100%sline\n\n");
}

TEST(String, EditsAndSearchesByPositionsFromOne)
{
    const TSString five("abcde");
    ExpectTexts({
        {"delete at the lowest position", TSString(five).Delete(INT_MIN, 1), "bcde"},
        {"delete past the text", TSString(five).Delete(100, 1) + "|", "abcde|"},
        {"delete a negative count", TSString(five).Delete(2, INT_MIN), "abcde"},
        {"insert far past the text", TSString(five).Insert("X", 100), "abcdeX"},
        {"insert at a negative position", TSString(five).Insert("X", -5), "Xabcde"},
        {"can't grow", TSString(five).SetLength(100), "abcde"},
        {"length below 0", TSString(five).SetLength(-1), ""},
        {"position below 1", five.SubString(INT_MIN, 2), "ab"},
        {"the last byte can't be had", five.SubString(5), ""},
        {"trim both ends", TSString("\t\x01 !a b\r\n").Trim(), "!a b"},
        {"strip a set", TSString("-1:2:-3").Strip(":-"), "123"},
        {"lower", TSString("@AZ[\x83\x41").LowerCase(), "@az[\x83\x61"},
        {"upper", TSString("`az{\x83\x61").UpperCase(), "`AZ{\x83\x41"},
        {"lower outside pairs",
         TSString("\x80Z\x81Z\x9FZ\xA0Z\xDFZ\xE0Z\xFCZ\xFDZ\x81\x81Z").LowerCaseSJIS(),
         "\x80z\x81Z\x9FZ\xA0z\xDFz\xE0Z\xFCZ\xFDz\x81\x81z"},
        {"upper outside pairs", TSString("\x81z`az{").UpperCaseSJIS(), "\x81z`AZ{"},
        {"double all", TSString("'a\\\x83\x5C\"").SQLString(1), "''a\\\\\x83\x5C\x5C\""},
        {"double outside pairs", TSString("\x83\x5C'\\").SQLString(0), "\x83\x5C''\\\\"},
    });
    EXPECT_EQ(TSString("a:b").Strip(":").Length(), 2);
    EXPECT_EQ(TSString("a\x83\x5C\x5C").AnsiPos("\\"), 3) << "any byte";
    EXPECT_EQ(TSString("abc").AnsiPos("abcd"), 0) << "no occurrence";
    EXPECT_EQ(TSString("\x83\x5C\x5C\x5C").AnsiPosSJIS("\\"), 3) << "outside pairs";
    EXPECT_EQ(TSString("\x83\x41").AnsiPosSJIS("A"), 0) << "no occurrence outside pairs";
    EXPECT_EQ(TSString("").AnsiPosSJIS(""), 1) << "nothing sought";
}

TEST(Text, IsChangedInPlace)
{
    Line mixed("aB1\xB1");
    char target[8];
    ExpectTexts({
        {"chop at CR", chop(Line("ab\rc\nd").data()), "ab"},
        {"chop at LF", chop(Line("ab\nc\rd").data()), "ab"},
        {"skip all white space", skipspace(Line(" \t\v\f\r\nab ").data()), "ab "},
        {"comment alone", uncomment(Line("#c").data()), ""},
        {"lower into a target", mystrtolower(mixed.data(), target), "ab1\xB1"},
        {"upper in place", mystrtoupper(mixed.data(), nullptr), "AB1\xB1"},
        {"changed in place", mixed.data(), "AB1\xB1"},
    });
    EXPECT_TRUE(chop(nullptr) == nullptr && skipspace(nullptr) == nullptr);
    char blanks[] = " a!b\x80 c ";
    trimleft(blanks, 6);
    trimleft(blanks + 7, 0);
    EXPECT_EQ(std::string(blanks, 8), std::string("\0a!b\x80\0c ", 8));
    for (const char* separator : {" ", "\f", "\n", "\r", "\t", "\v"}) {
        Line line = std::string("a") + separator + " c";
        EXPECT_STREQ(cdr(Line(line).data()), " c");
        char* rest = line.data();
        EXPECT_STREQ(car(&rest), "a");
        EXPECT_STREQ(rest, " c");
        EXPECT_EQ(cdr(line.data()), nullptr) << "one word";
    }
}

TEST(Text, IsAppendedAndEscapedWithinLimit)
{
    char text[8] = "ab";
    EXPECT_EQ(mystrcat(text, "cd", 8), text);
    EXPECT_STREQ(mystrcat(text, "efgh", 7), "abcdef") << "source cut";
    EXPECT_STREQ(mystrcat(text, "x", -1), "abcdef") << "no room";
    EXPECT_EQ(mystr_escquote("ab", text, -1), 0);
    EXPECT_STREQ(text, "abcdef") << "limit below 0";
    EXPECT_EQ(mystr_escquote("a'b\"", text, 7), 6);
    EXPECT_STREQ(text, "a\\'b\\\"");
    EXPECT_EQ(mystr_escquote("a'b", text, 3), 1) << "2 bytes of room for a quote";
    EXPECT_EQ(mystr_escquote("'x", text, 3), 3);
    EXPECT_STREQ(text, "\\'x");
    EXPECT_EQ(mystr_escquote("ab", text, 0), 0);
    EXPECT_STREQ(text, "");
}

TEST(Text, IsFormattedQuotedAndChecked)
{
    for (const char* format : {"5", ".2", "5.", "5.2s%", "*.2", "99999999999.2"})
        EXPECT_STREQ(FormatFloat(format, 1.0F).c_str(), "") << format;
    ExpectTexts({
        {"width and places", FormatFloat("5.2", 3.14159F), " 3.14"},
        {"any width", FormatFloat("300.1", 1.0F), (std::string(297, ' ') + "1.0").c_str()},
        {"plain", DoubleQuoteString("a;b\x81\x83"), "a;b\x81\x83"},
        {"blank", DoubleQuoteString("a b"), "\"a b\""},
        {"double quotes", DoubleQuoteString("\"a\"b"), "\"\"\"a\"\"b\""},
    });
    for (const char* text :
         {"", "\x01\x7F", "\xA1\xDF", "\x81\x40", "\xFC\xFC", "\x9F\x80z", "a\xE0", "\x81\x81\x3F"})
        EXPECT_TRUE(is_SJIS(text)) << testing::PrintToString(text);
    for (const char* text :
         {"\x80", "\xA0", "\xE0?", "\xFD", "\x81\x3F", "\x81\x7F", "\x81\xFD", "\x81\x81\x81\x3F"})
        EXPECT_FALSE(is_SJIS(text)) << testing::PrintToString(text);
}
