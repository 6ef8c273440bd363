#include <tuple>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "THexFile.h"
#include "TempDir.h"

using namespace std::string_literals;

namespace {

using Rows = std::vector<std::string>;

const std::string kUpper = ":02000004900466";
const std::string kHead = kUpper + "\n";
const std::string kData = ":0300000041424337";  // ABC at 0
constexpr std::uint32_t kStart = 0x90040000;

// A copy of exact size, so that a sanitizer sees a read past its end.
std::vector<char> Exactly(const std::string& text)
{
    return {text.c_str(), text.c_str() + text.size() + 1};
}

// A line with a valid record.
std::string Line(unsigned address, const std::string& bytes)
{
    return Record(0, address, bytes) + "\n";
}

void ExpectNothingLoaded(const THexFile& file)
{
    EXPECT_EQ(file.lines, nullptr);
    EXPECT_EQ(std::tuple(file.maxLineLength, file.lineCount, file.startAddress, file.endAddress,
                         std::string(file.versionText)),
              std::tuple(0, 0, 0U, 0U, ""));
}

}  // namespace

TEST(LoadedFile, IsSplitIntoRows)
{
    const std::tuple<const char*, std::string, int, Rows> cases[] = {
        {"CR LF", "abc\r\nd\r\n", 5, {"abc", "d"}},
        {"bytes past the last LF are no line", "a\nbcdef", 2, {"a"}},
        {"an empty LF line moves the rows up", "a\n\n\nb\nc\n", 2, {"a", "", "b", "c", ""}},
        {"an empty first LF line swallows one", "\n\na\n", 2, {"", "a", ""}},
        {"an empty CR LF line has a row", "a\r\n\r\nb\r\n", 3, {"a", "", "b"}},
        {"a CR in a line pushes the last row out", "ab\rcd\ne\nf\n", 6, {"ab", "cd", "e"}},
        {"80 bytes", std::string(78, 'x') + "\r\nb\n", 80, {std::string(78, 'x'), "b"}},
        {"an empty file", "", 0, {}},
    };
    const TempDir dir;
    for (const auto& [name, text, longest, rows] : cases) {
        THexFile file;
        EXPECT_TRUE(file.LoadFromFile(dir.Write("image.hex", text).c_str()));
        EXPECT_EQ(file.maxLineLength, longest) << name;
        EXPECT_EQ(Rows(file.lines, file.lines + file.lineCount), rows) << name;
    }
}

TEST(LoadedFile, IsDroppedWhenNextLoadFails)
{
    const TempDir dir;
    const std::string image = dir.Write("image.hex", kHead + Line(0x400, "1.23"));
    const std::string tooLong = dir.Write("81.hex", std::string(79, 'x') + "\r\n");
    const std::string pipe = dir.Path("pipe.hex");
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Rows refused = {tooLong, dir.Path("missing.hex"), dir.Path(), pipe};
    rlimit saved{};
    getrlimit(RLIMIT_AS, &saved);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__arm__)  // these need the address space themselves
    const rlimit little = {128 << 20, saved.rlim_max};
    setrlimit(RLIMIT_AS, &little);
    refused.push_back(dir.Write("rows", std::string(79, 'x') + std::string(4 << 20, '\n')));
    refused.push_back(dir.Write("bytes", ""));
    EXPECT_EQ(truncate(refused.back().c_str(), 1 << 30), 0);
#endif
    const auto descriptors = ListDescriptors();
    THexFile file;
    ExpectNothingLoaded(file);
    for (const std::string& path : refused) {
        EXPECT_TRUE(file.LoadFromFile(image.c_str()));
        EXPECT_FALSE(file.LoadFromFile(path.c_str())) << path;
        ExpectNothingLoaded(file);
    }
    setrlimit(RLIMIT_AS, &saved);
    EXPECT_TRUE(file.LoadFromFile(image.c_str()));
    EXPECT_TRUE(file.LoadFromFile(dir.Write("a.hex", "a\n").c_str()));
    EXPECT_STREQ(file.versionText, "");
    EXPECT_EQ(ListDescriptors(), descriptors);
}

TEST(LoadedFile, IsScannedForAddressesAndVersion)
{
    const struct {
        const char* name;
        std::string text;
        std::uint32_t start, end;
        const char* version = "";
    } rows[] = {
        {"last address, not highest", kHead + Line(0x20, "a") + Line(8, "b"), kStart, kStart + 9},
        {"first upper address but 0", ":020000040000FA\n" + kHead, kStart, kStart},
        {"no upper address", Line(0x30, "ab"), 0, 0x32},
        {"address wraps", ":02000004FFFFFC\n" + Line(0xFFFE, "abc"), 0xFFFF0000, 1},
        {"past the end", kHead + ":00000001FF\n" + Line(0x10, "a"), kStart, kStart + 0x11},
        {"bad checksum, no colon", "x02000004900400\nx0100100041FF\n", kStart, kStart + 0x11},
        {"lower case reads as 0", ":02000004900a5C\n", 0x90000000, 0x90000000},
        {"first byte above 7F is text", "\xFF" + kHead.substr(1), kStart, kStart},
        {"control character isn't", "\t" + kHead.substr(1), 0, 0},
        {"upper address, count 0", ":000000049004\n", kStart, kStart},
        {"upper address, count 0, cut", ":00000004900\n", 0, 0},
        {"data without data", kHead + ":04001000\n:0100200\n", kStart, kStart + 0x14},
        {"cut version", kHead + ":0404000041424\n", kStart, kStart + 0x404, "AB"},
        {"version", kHead + Line(0x400, "V1") + Line(0x402, "x"), kStart, kStart + 0x403, "V1"},
        {"two versions", kHead + Line(0x400, "V1") + Line(0x400, "2"), kStart, kStart + 0x401, "2"},
        {"version elsewhere", ":02000004900565\n" + Line(0x400, "V1"), 0x90050000, 0x90050402},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        THexFile file;
        ASSERT_TRUE(file.LoadFromText(row.text));
        const std::pair found(row.start, row.end);
        EXPECT_EQ(std::pair(file.startAddress, file.endAddress), found);
        EXPECT_STREQ(file.versionText, row.version);
        file.startAddress = 9;
        file.GetStartEndAddress();
        EXPECT_EQ(std::pair(file.startAddress, file.endAddress), found) << "found again";
    }
}

TEST(SentRecord, AdvancesAddressesOfSender)
{
    constexpr unsigned long kSent = 0xFFFF0123;
    constexpr unsigned long kBase = 0xFFFF0000;
    const std::tuple<const char*, bool, unsigned long, unsigned long> rows[] = {
        {":0310000041424327", false, kBase, 0xFFFF1003},
        {":02FFFF0041427D", false, kBase, 1},  // 32 bits on every machine
        {":03100000\r\n", false, kBase, 0xFFFF1003},
        {":0310000\r\n", false, kBase, kSent},  // the line end is no digit
        {":020000049005\r\n", true, 0x90050000, 0x90050000},
        {":02000004900\r\n", false, kBase, kSent},
        {":00000001FF", false, kBase, kSent},
    };
    for (const auto& [record, isUpper, upper, sent] : rows) {
        unsigned long base = kBase;
        unsigned long end = kSent;
        EXPECT_EQ(THexFile().GetSendedAddress(record, &base, &end), isUpper) << record;
        EXPECT_EQ(std::pair(base, end), std::pair(upper, sent)) << record;
    }
}

TEST(CheckedRecord, IsKeptIfContiguousUntilReset)
{
    const std::tuple<const char*, Rows, std::string, int, std::uint32_t> cases[] = {
        {"data after data", {kUpper, kData}, ":0100030044B8", 0, kStart + 4},
        {"jump", {kData}, kUpper, 0, kStart},
        {"no data", {kUpper}, ":0000000000", 0, kStart},
        {"more after the checksum", {kUpper}, kData + "xx", 0, kStart + 3},
        {"upper address, third byte not summed", {}, ":0300000490047765", 0, kStart},
        {"upper address that is its own checksum", {}, ":00000004FE00", 0, 0xFE000000},
        {"end, wrong checksum", {kUpper}, ":0000000100", -1, kStart},
        {"gap", {kUpper}, Record(0, 1, "abc"), 5, kStart},
        {"repeated data", {kUpper, kData}, kData, 5, kStart + 3},
        {"wrong address and checksum", {kUpper}, ":0300010041424337", 5, kStart},
        {"wrong checksum", {kUpper}, ":0300000041424338", 4, kStart},
        {"upper address, wrong checksum", {}, ":02000004900467", 4, 0},
        {"start address", {kUpper}, ":040000059004000063", 3, kStart},
        {"lower case data is 0", {kUpper}, ":01000000aF50", 4, kStart},
        {"bytes above 7F are 0", {kUpper}, ":\xFF\xFF\x80\x80\xFF\xFF\xFF\xFF\xFF\xFF", 0, kStart},
        {"no colon", {kUpper}, "0300000041424337", 1, kStart},
        {"lying count", {kUpper}, ":FF00000041424337", 2, kStart},
        {"another type, cut", {kUpper}, ":FF000003", 2, kStart},
    };
    const TempDir dir;
    for (const auto& [name, accepted, record, result, next] : cases) {
        SCOPED_TRACE(name);
        THexFile file;
        std::string kept;
        for (const std::string& earlier : accepted) {
            ASSERT_EQ(file.CheckIntelHex(earlier.c_str()), 0);
            kept += earlier;
        }
        EXPECT_EQ(file.CheckIntelHex(Exactly(record).data()), result);
        EXPECT_EQ(file.GetNextAddress(), next);
        EXPECT_TRUE(file.SaveToFile(dir.Path("kept.hex").c_str()));
        EXPECT_EQ(dir.Read("kept.hex"), result <= 0 ? kept + record : kept);
        EXPECT_FALSE(file.SaveToFile(dir.Path("missing/kept.hex").c_str()));

        file.Reset();
        EXPECT_EQ(file.GetNextAddress(), 0U);
        EXPECT_TRUE(file.SaveToFile(dir.Path("kept.hex").c_str()));
        EXPECT_EQ(dir.Read("kept.hex"), "");
        EXPECT_EQ(file.CheckIntelHex(kData.c_str()), 0) << "data at 0 is what comes next";
        EXPECT_EQ(file.CheckIntelHex(":02000004900467"), 4);
        EXPECT_EQ(file.baseAddress, kStart) << "even with a wrong checksum";
    }
}

TEST(CheckedRecord, IsRefusedIfTruncated)
{
    const std::string longest = Record(0, 0, std::string(255, 'x'));
    for (const std::string& record : {kUpper, kData, longest, ":00000001FF"s, ":00000004FE00"s}) {
        for (std::size_t length = 0; length < record.size(); ++length) {
            SCOPED_TRACE(record.substr(0, length));
            THexFile file;
            for (const char* lineEnd : {"", "\r\n", "\n"}) {
                const auto cut = Exactly(record.substr(0, length) + lineEnd);
                EXPECT_EQ(file.CheckIntelHex(cut.data()), length == 0 ? 1 : 2);
            }
            EXPECT_EQ(file.baseAddress + file.GetNextAddress(), 0U);
        }
        EXPECT_LE(THexFile().CheckIntelHex(Exactly(record).data()), 0);
    }
}
