#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "HexText.h"
#include "SumFile.h"
#include "TempDir.h"

using namespace std::string_literals;

TEST(SumFile, IsTheLineOfCksum)
{
    const TempDir dir;
    const std::string some = "123456789";
    for (const std::string& bytes : {""s, "\0"s, some, Firmware(0x100), Firmware(0x10123)}) {
        const std::string path = dir.Write("csp_prog.rlg", bytes);
        const std::string command = "cksum " + path + " >" + dir.Path("sum");
        ASSERT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): the test's own words
        const std::string sum = dir.Read("sum");
        EXPECT_EQ(SumLine(bytes, path), sum);
        EXPECT_TRUE(SumMatches(sum, bytes));
        EXPECT_FALSE(SumMatches(sum, bytes + '\0'));
    }
    const struct {
        const char* text;
        bool matches;
    } rows[] = {
        {"930766865 9", true},     {"930766865 9 any name\r\nmore", true},
        {"930766865 9\r\n", true}, {"930766865 9 \n", true},
        {"930766865 99", false},   {"930766865  9", false},
        {" 930766865 9", false},   {"1 2 other\n930766865 9", true},
        {"0930766865 9", false},   {"930766865", false},
        {"930766864 9", false},    {"930766865 9\tx", false},
        {"930766865 8", false},    {"", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(SumMatches(row.text, some), row.matches) << row.text;
}
