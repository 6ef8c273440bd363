#include <algorithm>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Compress.h"
#include "Descriptors.h"
#include "ImageText.h"
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

std::string Times(std::size_t count, char value)
{
    return std::string(count, value);
}

}  // namespace

TEST(Intel2Bin, KeepsTheUpperAddressAndTheData)
{
    const struct {
        const char* name;
        std::string hex;
        bool result;
        std::string binary;
    } cases[] = {
        {"CR LF", kUpper + kData + kEnd, true, kHead + "ABC"},
        {"LF, none at the end", ":02000004900466\n:0300000041424337", true, kHead + "ABC"},
        {"upper address alone", kUpper, true, kHead},
        {"gap and upper address", kUpper + kData + ":02000004900763\r\n" + kData, true,
         kHead + "ABCABC"},
        {"other lines", kUpper + ":040000059004000063\r\n\r\nno\r\n:00\r\n" + kData, true,
         kHead + "ABC"},
        {"neither case nor checksum", ":02000004900a00\n:02000000aBCd00", true, "\x0A\x90\xAB\xCD"},
        {"bad digits", ":02000004900G66\n:030000004x42x337", true, "\0\0\0B\0"s},
        {"cut data", kUpper + ":040000004142\r\n:0300000041424", true, kHead + "AB\0\0AB\0"s},
        {"lying count", kUpper + ":FF00000041", true, kHead + "A" + Times(254, '\0')},
        {"cut type", kUpper + ":0300000", true, kHead},
        {"cut upper address", ":02000004900", true, "\0\0"s},
        {"no upper address", ":02000004", true, "\0\0"s},
        {"data first", kData + kUpper, false, ""},
        {"an empty file", "", false, ""},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string hex = dir.Write("image.hex", c.hex);
        const std::string binary = dir.Write("image.bin", "old");

        EXPECT_EQ(Intel2Bin(hex.c_str(), binary.c_str()), c.result);

        EXPECT_EQ(dir.Read("image.bin"), c.binary);
    }
}

TEST(Bin2Intel, WritesRecordsOf32Bytes)
{
    const std::string full =
        ":200000004141414141414141414141414141414141414141414141414141414141414141C0\r\n";
    const struct {
        std::string binary;
        std::string hex;
    } cases[] = {
        {kHead + "AB", kUpper + ":0200000041427B\r\n" + kEnd},
        {kHead + Times(33, 'A'), kUpper + full + ":01002000419E\r\n" + kEnd},
        {"\xFF\x7F\xFE\xFF", ":020000047FFF7C\r\n:02000000FEFF01\r\n" + kEnd},
        {kHead, kEnd},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        const std::string binary = dir.Write("image.bin", c.binary);

        EXPECT_TRUE(Bin2Intel(binary.c_str(), dir.Write("image.hex", "old").c_str()));

        EXPECT_EQ(dir.Read("image.hex"), c.hex);
    }
}

TEST(Bin2Intel, CountsAddressesIn32Bits)
{
    const TempDir dir;
    const std::string binary = dir.Write("image.bin", "\xFF\xFF" + Times(0x10001, 'A'));

    EXPECT_TRUE(Bin2Intel(binary.c_str(), dir.Path("image.hex").c_str()));

    const std::string tail = ":020000040000FA\r\n:0100000041BE\r\n" + kEnd;
    const std::string text = dir.Read("image.hex");
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
}

TEST(Bin2Intel, WritesFullRecordsHoweverTheReadsAreCut)
{
    const std::string binary = kHead + Times(0xFFFF, 'A') + "BCD";
    const TempDir dir;
    const std::string pipe = dir.Path("image.bin");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::signal(SIGPIPE, SIG_IGN);  // a reader that gives up early is to fail the test, not end it
    // Each piece comes alone, for it is written only when the last one has been read.
    std::thread writer([&] {
        const UniqueFd end(open(pipe.c_str(), O_WRONLY));
        std::size_t at = 0;
        for (std::size_t piece : {std::size_t{1}, std::size_t{21}, binary.size()}) {
            int unread = 1;
            pollfd reader = {end.Get(), 0, 0};
            while (unread > 0 && poll(&reader, 1, 0) == 0)  // 1 when it has gone
                ioctl(end.Get(), FIONREAD, &unread);
            piece = std::min(piece, binary.size() - at);
            EXPECT_EQ(write(end.Get(), binary.data() + at, piece), static_cast<ssize_t>(piece));
            at += piece;
        }
    });

    EXPECT_TRUE(Bin2Intel(pipe.c_str(), dir.Path("piped.hex").c_str()));

    writer.join();
    EXPECT_TRUE(Bin2Intel(dir.Write("whole.bin", binary).c_str(), dir.Path("whole.hex").c_str()));
    const std::string text = dir.Read("piped.hex");
    EXPECT_EQ(text, dir.Read("whole.hex"));
    EXPECT_NE(text.find(":02000004900565\r\n:020000004344" + std::string("77\r\n")),
              std::string::npos);
}

TEST(RunLength, CodesRunsAndTurnsThemBack)
{
    const struct {
        std::string plain;
        const char* coded;
    } cases[] = {
        {"", ""},
        {"AAAAX\xDDZZ", "DD 41 04 58 DD DD 01 5A 5A"},
        {"AA", "41 41"},
        {"AAA", "DD 41 03"},
        {Times(255, 'A'), "DD 41 FF"},
        {Times(256, 'A'), "DD 41 FF 41"},
        {Times(257, 'A'), "DD 41 FF 41 41"},
        {Times(258, 'A'), "DD 41 FF DD 41 03"},
        {Times(255, 'A') + "B", "DD 41 FF 42"},
        {"\xDD", "DD DD 01"},
        {"\xDD\xDD", "DD DD 02"},
        {Times(256, '\xDD'), "DD DD FF DD DD 01"},
        {"\xFF\xFF\xFFZ", "DD FF 03 5A"},
        {"\0\0\0\0"s, "DD 00 04"},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.coded);
        const std::string plain = dir.Write("plain", c.plain);
        const std::string coded = dir.Write("coded", "old");

        EXPECT_TRUE(RL_Compress(plain.c_str(), coded.c_str()));
        EXPECT_EQ(dir.Read("coded"), Bytes(c.coded));

        EXPECT_TRUE(RL_Decompress(coded.c_str(), plain.c_str()));
        EXPECT_EQ(dir.Read("plain"), c.plain);
    }
}

TEST(RunLength, ExpandsWhatTheCoderNeverWritesAndRefusesACutItem)
{
    const struct {
        const char* coded;
        bool result;
        std::string plain;
    } cases[] = {
        {"DD 41 01 DD 42 02 43", true, "ABBC"},
        {"41 DD 42 00 DD DD 00 43", true, "AC"},
        {"DD 41 DD", true, Times(0xDD, 'A')},
        {"41 DD", false, "A"},
        {"41 DD 42", false, "A"},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.coded);
        const std::string coded = dir.Write("coded", Bytes(c.coded));

        EXPECT_EQ(RL_Decompress(coded.c_str(), dir.Path("plain").c_str()), c.result);

        EXPECT_EQ(dir.Read("plain"), c.plain);
    }
}

TEST(RunLength, WritesCountsInGroupsOf7Bits)
{
    const struct {
        unsigned long value;
        const char* bytes;
    } cases[] = {
        {0, "00"},
        {0x7F, "7F"},
        {0x80, "81 00"},
        {0x4000, "81 80 00"},
        {0xFFFFFFFF, "8F FF FF FF 7F"},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        const UniqueFd output(open(dir.Write("count", "").c_str(), O_WRONLY | O_TRUNC));

        EXPECT_EQ(WriteCount(output.Get(), c.value), 0);

        EXPECT_EQ(dir.Read("count"), Bytes(c.bytes)) << c.value;
    }
    const UniqueFd full(open("/dev/full", O_WRONLY));
    EXPECT_EQ(WriteCount(full.Get(), 5), -1);
    EXPECT_EQ(WriteCount(full.Get(), 500), -1);
    EXPECT_FALSE(flush(full.Get(), 'A', 255));
    EXPECT_TRUE(flush(full.Get(), escape, 0)) << "nothing to write";
}

TEST(CompressedImage, ComesBackAsTheSameHexFile)
{
    const TempDir dir;
    for (const std::size_t size : {1U, 32U, 0xFFFFU, 0x10000U, 0x10001U, 0x2A123U}) {
        SCOPED_TRACE(size);
        const std::string data = Firmware(size);
        const std::string from = dir.Write("from.hex", HexText(data, 16, "\n"));

        EXPECT_TRUE(Compress(from.c_str(), dir.Path("image.rlg").c_str()));
        EXPECT_TRUE(Decompress(dir.Path("image.rlg").c_str(), dir.Path("to.hex").c_str()));

        EXPECT_EQ(dir.Read("to.hex"), HexText(data, 32, "\r\n"));
        EXPECT_EQ(dir.Read("from.bin"), kHead + data);
        EXPECT_EQ(dir.Read("to.bin"), kHead + data);
    }
}

TEST(CompressedImage, IsNoSuccessWhenAnyStageFails)
{
    const TempDir dir;
    const std::string hex = dir.Write("image.hex", kUpper + kData + kEnd);
    const std::string bad = dir.Write("bad.hex", kEnd);
    const std::string empty = dir.Write("empty.rlg", "");
    const std::string rlg = dir.Write("image.rlg", Bytes("04 90 41 42 DD 43 09"));
    const std::string cut = dir.Write("cut.rlg", Bytes("04 90 41 42 DD 43"));
    const std::string missing = dir.Path("missing");
    const std::string nowhere = dir.Path("missing/out");
    const std::string old = dir.Write("old", "old");
    const std::string full = dir.Path("full.hex");  // opens and takes no byte
    std::filesystem::create_symlink("/dev/full", full);
    const struct {
        const char* name;
        bool (*convert)(const char*, const char*);
        std::string from;
        std::string to;
    } cases[] = {
        {"Intel2Bin, full disk", Intel2Bin, hex, full},
        {"Intel2Bin, no input", Intel2Bin, missing, old},
        {"Intel2Bin, no output", Intel2Bin, hex, nowhere},
        {"Bin2Intel, full disk", Bin2Intel, rlg, full},
        {"Bin2Intel, no input", Bin2Intel, missing, old},
        {"Bin2Intel, empty input", Bin2Intel, empty, old},
        {"Bin2Intel, one byte", Bin2Intel, dir.Write("1.bin", "x"), old},
        {"Bin2Intel, no output", Bin2Intel, rlg, nowhere},
        {"RL_Compress, full disk", RL_Compress, hex, full},
        {"RL_Compress, no input", RL_Compress, missing, old},
        {"RL_Compress, directory", RL_Compress, dir.Path(), old},
        {"RL_Compress, no output", RL_Compress, hex, nowhere},
        {"RL_Decompress, full disk", RL_Decompress, rlg, full},
        {"RL_Decompress, no input", RL_Decompress, missing, old},
        {"RL_Decompress, no output", RL_Decompress, rlg, nowhere},
        {"Compress, full medium", Compress, hex, full},
        {"Compress, no upper address", Compress, bad, old},
        {"Compress, no name for the binary", Compress, dir.Path() + "/", old},
        {"Decompress, full disk", Decompress, rlg, full},
        {"Decompress, damaged", Decompress, cut, old},
        {"Decompress, empty", Decompress, empty, old},
    };
    const auto descriptors = OpenDescriptors();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);

        EXPECT_FALSE(c.convert(c.from.c_str(), c.to.c_str()));

        EXPECT_EQ(dir.Read("old"), "old");
        EXPECT_FALSE(dir.Exists("missing"));
        EXPECT_EQ(OpenDescriptors(), descriptors);
    }
}
