#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Compress.h"
#include "HexText.h"
#include "IntelBin.h"
#include "RunLength.h"
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

TEST(Intel2Bin, WritesUpperAddressAndData)
{
    const struct {
        const char* name;
        std::string hex, binary;
        bool result = true;
    } cases[] = {
        {"CR LF", kUpper + kData + kEnd, kHead + "ABC"},
        {"LF, none at the end", ":02000004900466\n:0300000041424337", kHead + "ABC"},
        {"upper address alone", kUpper, kHead},
        {"gap", kUpper + kData + ":02000004900763\r\n" + kData, kHead + "ABCABC"},
        {"other lines", kUpper + ":040000059004000063\r\n\r\n:00\r\n" + kData, kHead + "ABC"},
        {"neither case nor checksum", ":02000004900a00\n:02000000aBCd00", "\x0A\x90\xAB\xCD"},
        {"bad digits", ":02000004900G66\n:030000004x42x337", "\0\0\0B\0"s},
        {"cut data", kUpper + ":0300000041424", kHead + "AB\0"s},
        {"lying count", kUpper + ":FF00000041", kHead + "A" + Times(254, '\0')},
        {"cut upper address", ":02000004", "\0\0"s},
        {"data first", kData + kUpper, "", false},
        {"an empty file", "", "", false},
        {"a NUL", kUpper + ":02000000\0004142"s, kHead + "\0\0"s},
        {"a long line", kUpper + Times(1023, 'x') + kData, kHead + "ABC"},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        const std::string hex = dir.Write("image.hex", c.hex);
        EXPECT_EQ(Intel2Bin(hex.c_str(), dir.Write("image.bin", "old").c_str()), c.result)
            << c.name;
        EXPECT_EQ(dir.Read("image.bin"), c.binary) << c.name;
        EXPECT_EQ(BinaryFromHex(c.hex), c.result ? std::optional(c.binary) : std::nullopt)
            << c.name;
    }
}

TEST(Bin2Intel, WritesFullRecordsDespiteShortReads)
{
    const struct {
        const char* name;
        std::string binary, hex;
    } cases[] = {
        {"FF is data", "\xFF\x7F\xFE\xFF", ":020000047FFF7C\r\n:02000000FEFF01\r\n" + kEnd},
        {"no data", kHead, kEnd},
        {"32 bits", "\xFF\xFF" + Times(0x10001, 'A'),
         ":020000040000FA\r\n:0100000041BE\r\n" + kEnd},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        for (const std::size_t limit : {1U, 21U, 1000U}) {
            const std::string binary = dir.Write("image.bin", c.binary);
            dir.Write("image.hex", "old");
            disk.readLimit = limit;
            EXPECT_TRUE(Bin2Intel(binary.c_str(), dir.Path("image.hex").c_str()));
            disk = {};
            const std::string hex = dir.Read("image.hex");
            EXPECT_EQ(hex.substr(std::max(hex.size(), c.hex.size()) - c.hex.size()), c.hex)
                << c.name;
            EXPECT_EQ(HexFromBinary(c.binary), hex) << c.name;
        }
    }
    EXPECT_EQ(HexFromBinary("x"), std::nullopt);
}

TEST(RunLength, EncodesAndDecodesRuns)
{
    const struct {
        std::string plain, coded;
        bool isCoders = true;  // false: a form that the coder doesn't write
        bool isWhole = true;   // false: the last item is cut
    } cases[] = {
        {"", ""},
        {"AAAAX\xDDZZ", "\xDD\x41\x04X\xDD\xDD\x01ZZ"},
        {"AAA", "\xDD\x41\x03"},
        {Times(255, 'A') + "B", "\xDD\x41\xFF\x42"},
        {Times(257, 'A'), "\xDD\x41\xFF\x41\x41"},
        {Times(258, 'A'), "\xDD\x41\xFF\xDD\x41\x03"},
        {Times(256, '\xDD'), "\xDD\xDD\xFF\xDD\xDD\x01"},
        {"\xFF\xFF\xFF\0\0\0\0"s, "\xDD\xFF\x03\xDD\0\x04"s},
        {"ABBC", "\xDD\x41\x01\xDD\x42\x02\xDD\xDD\0\x43"s, false},
        {"A", "\x41\xDD", false, false},
        {"A", "\x41\xDD\x42", false, false},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.coded));
        const std::string plain = dir.Write("plain", c.plain);
        const std::string coded = dir.Write("coded", c.isCoders ? "old" : c.coded);
        EXPECT_TRUE(!c.isCoders || RL_Compress(plain.c_str(), coded.c_str()));
        EXPECT_EQ(dir.Read("coded"), c.coded);
        EXPECT_EQ(RL_Decompress(coded.c_str(), plain.c_str()), c.isWhole);
        EXPECT_EQ(dir.Read("plain"), c.plain);

        EXPECT_TRUE(!c.isCoders || RunLengthCode(c.plain) == c.coded);
        const auto result = c.isWhole ? std::optional(c.plain) : std::nullopt;
        EXPECT_EQ(RunLengthExpand(c.coded, c.plain.size()), result);
        EXPECT_TRUE(c.plain.empty() || !RunLengthExpand(c.coded, c.plain.size() - 1));
    }
}

TEST(RunLength, WritesCountsInGroupsOf7Bits)
{
    const TempDir dir;
    const UniqueFd output(open(dir.Path("counts").c_str(), O_WRONLY | O_CREAT, 0600));
    for (const unsigned long value : {0x7FUL, 0UL, 0x80UL, 0x4000UL, 0xFFFFFFFFUL})
        EXPECT_EQ(WriteCount(output.Get(), value), 0);
    EXPECT_EQ(dir.Read("counts"), "\x7F\0\x81\0\x81\x80\0\x8F\xFF\xFF\xFF\x7F"s);
    EXPECT_EQ(WriteCount(-1, 5), -1);
    EXPECT_EQ(WriteCount(-1, 500), -1);
    EXPECT_TRUE(flush(-1, escape, 0)) << "nothing to write";
}

TEST(CompressedImage, ExpandsToSameHexFile)
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
        EXPECT_EQ(dir.Read("from.bin"), kHead + data);
        EXPECT_EQ(dir.Read("to.bin"), kHead + data);
    }
}

TEST(CompressedImage, ExpandsToTheFlashAtMost)
{
    std::string coded = kHead + Times(1, 'x');
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
    for (const Convert convert : std::initializer_list<Convert>{
             Intel2Bin, Bin2Intel, RL_Compress, RL_Decompress, Compress, Decompress}) {
        EXPECT_FALSE(convert(dir.Path("missing").c_str(), old.c_str()));
        EXPECT_FALSE(convert(pipe.c_str(), old.c_str())) << "it has no writer";
        EXPECT_FALSE(convert(hex.c_str(), dir.Path("no/out").c_str()));
    }
    EXPECT_FALSE(Bin2Intel(dir.Write("1.bin", "x").c_str(), old.c_str()));
    EXPECT_FALSE(RL_Compress(dir.Path().c_str(), old.c_str()));
    EXPECT_FALSE(Compress(dir.Write("bad.hex", kEnd).c_str(), old.c_str()));
    EXPECT_FALSE(Compress((dir.Path() + "/").c_str(), old.c_str()));
    EXPECT_FALSE(Decompress(dir.Write("cut.rlg", kHead + "AB\xDD\x43").c_str(), old.c_str()));
    EXPECT_EQ(dir.Read("old"), "old");
    EXPECT_EQ(ListDescriptors(), descriptors);
}
