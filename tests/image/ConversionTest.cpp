// The forms of an image, each conversion between files and in memory, and the checksum's file.
#include <climits>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Compress.h"
#include "HexText.h"
#include "IntelBin.h"
#include "RunLength.h"
#include "SumFile.h"
#include "TempDir.h"
#include "UniqueFd.h"

using namespace std::string_literals;

namespace {

const std::string kHead = "\x04\x90";  // the same upper address in binary
const std::string kUpper = ":02000004900466\r\n";
const std::string kData = ":0300000041424337\r\n";  // ABC at 0
const std::string kEnd = ":00000001FF\r\n";

using Convert = bool (*)(const char*, const char*);

std::string Times(std::size_t count, char value)
{
    return std::string(count, value);
}

struct {
    int calls = INT_MAX;               // reads and writes that succeed before all others fail
    std::size_t readLimit = SIZE_MAX;  // the most bytes that one read returns
} disk;

// Converts a file of the bytes into one with older bytes. The result, and what is in that file.
std::pair<bool, std::string> ConvertFile(Convert convert, const std::string& bytes)
{
    const TempDir dir;
    const bool isDone = convert(dir.Write("from", bytes).c_str(), dir.Write("to", "old").c_str());
    return {isDone, dir.Read("to")};
}

// How often the conversion fails if one more read or write succeeds each time.
int CountFailures(Convert convert, const std::string& from, const std::string& to)
{
    int failures = 0;
    for (disk.calls = 0; failures < 100 && !convert(from.c_str(), to.c_str()); ++failures)
        disk.calls = failures + 1;
    disk = {};
    return failures;
}

}  // namespace

// These two replace libc's in this program.
extern "C" ssize_t read(int descriptor, void* target, std::size_t size)
{
    return disk.calls-- > 0 ? syscall(SYS_read, descriptor, target, std::min(size, disk.readLimit))
                            : -1;
}

extern "C" ssize_t write(int descriptor, const void* data, std::size_t size)
{
    return disk.calls-- > 0 ? syscall(SYS_write, descriptor, data, size) : -1;
}

TEST(Convert, FromHexToUpperAddressAndData)
{
    const std::tuple<const char*, std::string, bool, std::string> rows[] = {
        {"LF, none at the end", ":02000004900466\n:0300000041424337", true, kHead + "ABC"},
        {"other lines", kUpper + ":040000059004000063\r\n\r\n:00\r\n" + kData, true, kHead + "ABC"},
        {"any case", ":02000004900a00\n:02000000aBCd00", true, "\x0A\x90\xAB\xCD"},
        {"bad digits", ":02000004900G66\n:030000004x42x337", true, "\0\0\0B\0"s},
        {"cut data", kUpper + ":0300000041424", true, kHead + "AB\0"s},
        {"lying count", kUpper + ":FF00000041", true, kHead + "A" + Times(254, '\0')},
        {"data first", kData + kUpper, false, ""},
        {"a NUL", kUpper + ":02000000\0004142"s, true, kHead + "\0\0"s},
        {"a long line", kUpper + Times(1023, 'x') + kData, true, kHead + "ABC"},
    };
    for (const auto& [name, hex, isDone, binary] : rows) {
        EXPECT_EQ(ConvertFile(Intel2Bin, hex), std::pair(isDone, binary)) << name;
        EXPECT_EQ(BinaryFromHex(hex), isDone ? std::optional(binary) : std::nullopt) << name;
    }
}

TEST(Convert, FromBinaryToFullRecordsDespiteShortReads)
{
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"FF is data", "\xFF\x7F\xFE\xFF", ":020000047FFF7C\r\n:02000000FEFF01\r\n" + kEnd},
        {"no data", kHead, kEnd},
        {"32 bits", "\xFF\xFF" + Times(0x10001, 'A'),
         ":020000040000FA\r\n:0100000041BE\r\n" + kEnd},
    };
    for (const auto& [name, binary, end] : rows) {
        for (const std::size_t limit : {1U, 21U, 1000U}) {
            disk.readLimit = limit;
            const auto [isDone, hex] = ConvertFile(Bin2Intel, binary);
            disk = {};
            EXPECT_TRUE(isDone) << name;
            EXPECT_EQ(hex.substr(std::max(hex.size(), end.size()) - end.size()), end) << name;
            EXPECT_EQ(HexFromBinary(binary), hex) << name;
        }
    }
    EXPECT_EQ(HexFromBinary("x"), std::nullopt);
}

TEST(Convert, RunsToItemsAndBack)
{
    const struct {
        std::string plain, coded;
        bool isCoders = true;  // false: a form that the coder doesn't write
        bool isWhole = true;   // false: the last item is cut
    } rows[] = {
        {"", ""},
        {"AAAAX\xDDZZ", "\xDD\x41\x04X\xDD\xDD\x01ZZ"},
        {"AAA", "\xDD\x41\x03"},
        {Times(257, 'A'), "\xDD\x41\xFF\x41\x41"},
        {Times(256, '\xDD'), "\xDD\xDD\xFF\xDD\xDD\x01"},
        {"\xFF\xFF\xFF\0\0\0\0"s, "\xDD\xFF\x03\xDD\0\x04"s},
        {"ABBC", "\xDD\x41\x01\xDD\x42\x02\xDD\xDD\0\x43"s, false},
        {"A", "\x41\xDD", false, false},
        {"A", "\x41\xDD\x42", false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.coded));
        if (row.isCoders) {
            EXPECT_EQ(ConvertFile(RL_Compress, row.plain), std::pair(true, row.coded));
            EXPECT_EQ(RunLengthCode(row.plain), row.coded);
        }
        EXPECT_EQ(ConvertFile(RL_Decompress, row.coded), std::pair(row.isWhole, row.plain));
        const auto result = row.isWhole ? std::optional(row.plain) : std::nullopt;
        EXPECT_EQ(RunLengthExpand(row.coded, row.plain.size()), result);
        EXPECT_TRUE(row.plain.empty() || !RunLengthExpand(row.coded, row.plain.size() - 1));
    }
}

TEST(RunLength, WritesCountsInGroupsOf7Bits)
{
    const TempDir dir;
    const UniqueFd output(open(dir.Path("counts").c_str(), O_WRONLY | O_CREAT, 0600));
    for (const unsigned long value : {0x7FUL, 0UL, 0x80UL, 0x4000UL, 0xFFFFFFFFUL})
        EXPECT_EQ(WriteCount(output.Get(), value), 0);
    EXPECT_EQ(dir.Read("counts"), "\x7F\0\x81\0\x81\x80\0\x8F\xFF\xFF\xFF\x7F"s);
    for (const unsigned long value : {5UL, 500UL})
        EXPECT_EQ(WriteCount(-1, value), -1);
    EXPECT_TRUE(flush(-1, escape, 0)) << "nothing to write";
}

TEST(CompressedImage, ExpandsToSameHexFileUpToTheFlash)
{
    const TempDir dir;
    for (const std::size_t size : {1U, 32U, 0x10000U, 0x1A123U}) {
        SCOPED_TRACE(size);
        const std::string data = Firmware(size);
        const std::string from = dir.Write("from.hex", HexText(data, 16, "\n"));
        EXPECT_TRUE(Compress(from.c_str(), dir.Path("image.rlg").c_str()));
        EXPECT_TRUE(Decompress(dir.Path("image.rlg").c_str(), dir.Path("to.hex").c_str()));
        EXPECT_EQ(dir.Read("to.hex"), HexText(data, 32, "\r\n"));
        EXPECT_EQ(CompressImage(dir.Read("from.hex")), dir.Read("image.rlg"));
        EXPECT_EQ(ExpandImage(dir.Read("image.rlg")), dir.Read("to.hex"));
        for (const char* binary : {"from.bin", "to.bin"})
            EXPECT_EQ(dir.Read(binary), kHead + data);
    }
    std::string coded = kHead + "x";
    for (std::size_t i = 0; i < 0x1000000 / 255; ++i)
        coded += "\xDD\x41\xFF";
    EXPECT_TRUE(ExpandImage(coded)) << "exactly the flash";
    EXPECT_FALSE(ExpandImage(coded + "x"));
    EXPECT_FALSE(CompressImage(kEnd) || ExpandImage("x") || ExpandImage(kHead + "\xDD"));
}

TEST(CompressedImage, FailsWhenAnyStepFails)
{
    const TempDir dir;
    const std::string hex = dir.Write("image.hex", kUpper + kData + kData + kEnd);
    const std::string rlg = dir.Write("image.rlg", kHead + Times(35, 'A') + "\xDD\x43\x09");
    const std::string to = dir.Path("to");
    EXPECT_EQ(CountFailures(Intel2Bin, hex, to), 3);
    EXPECT_EQ(CountFailures(Bin2Intel, rlg, to), 9);
    EXPECT_EQ(CountFailures(RL_Compress, dir.Write("runs", "AAAABBCC" + Times(255, 'D')), to), 11);
    EXPECT_EQ(CountFailures(RL_Decompress, rlg, to), 47);
    EXPECT_EQ(CountFailures(Compress, dir.Write("3.hex", kUpper + kData), to), 8);

    const std::string old = dir.Write("old", "old");
    const std::string pipe = dir.Path("pipe");
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const auto descriptors = ListDescriptors();
    const auto fails = [&](Convert convert, const std::string& from) {
        return !convert(from.c_str(), old.c_str());
    };
    for (const Convert convert : std::initializer_list<Convert>{
             Intel2Bin, Bin2Intel, RL_Compress, RL_Decompress, Compress, Decompress}) {
        EXPECT_TRUE(fails(convert, dir.Path("missing")));
        EXPECT_TRUE(fails(convert, pipe)) << "it has no writer";
        EXPECT_FALSE(convert(hex.c_str(), dir.Path("no/out").c_str()));
    }
    EXPECT_TRUE(fails(Bin2Intel, dir.Write("1.bin", "x")));
    EXPECT_TRUE(fails(RL_Compress, dir.Path()));
    EXPECT_TRUE(fails(Compress, dir.Write("bad.hex", kEnd)) && fails(Compress, dir.Path() + "/"));
    EXPECT_TRUE(fails(Decompress, dir.Write("cut.rlg", kHead + "AB\xDD\x43")));
    EXPECT_EQ(dir.Read("old"), "old");
    EXPECT_EQ(ListDescriptors(), descriptors);
}

TEST(SumFile, IsTheLineOfCksum)
{
    const TempDir dir;
    const std::string some = "123456789";
    for (const std::string& bytes : {""s, "\0"s, some, Firmware(0x10123)}) {
        const std::string path = dir.Write("csp_prog.rlg", bytes);
        const std::string command = "cksum " + path + " >" + dir.Path("sum");
        ASSERT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): the test's own words
        const std::string sum = dir.Read("sum");
        EXPECT_EQ(SumLine(bytes, path), sum);
        EXPECT_TRUE(SumMatches(sum, bytes));
        EXPECT_FALSE(SumMatches(sum, bytes + '\0'));
    }
    for (const char* text : {"930766865 9", "930766865 9 any name\r\nmore", "930766865 9\r\n",
                             "930766865 9 \n", "1 2 other\n930766865 9"})
        EXPECT_TRUE(SumMatches(text, some)) << text;
    for (const char* text : {"930766865 99", "930766865  9", " 930766865 9", "0930766865 9",
                             "930766865", "930766864 9", "930766865 9\tx", "930766865 8", ""})
        EXPECT_FALSE(SumMatches(text, some)) << text;
}
