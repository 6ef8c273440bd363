#include <cstdint>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Descriptors.h"
#include "HexText.h"
#include "THexFile.h"
#include "TempDir.h"

using namespace std::string_literals;

namespace {

const std::string kUpper = ":02000004900466\n";
constexpr std::uint32_t kStart = 0x90040000;

std::string Data(unsigned address, const std::string& bytes)
{
    return Record(0, address, bytes) + "\n";
}

using Rows = std::vector<std::string>;

Rows RowsOf(const THexFile& file)
{
    return {file.lines, file.lines + file.lineCount};
}

void ExpectNothingLoaded(const THexFile& file)
{
    EXPECT_EQ(file.maxLineLength, 0);
    EXPECT_EQ(RowsOf(file), Rows());
    EXPECT_EQ(file.lines, nullptr);
    EXPECT_EQ(file.startAddress + file.endAddress, 0U);
    EXPECT_STREQ(file.versionText, "");
}

}  // namespace

TEST(LoadedFile, BreaksTheFileIntoRows)
{
    const struct {
        const char* name;
        std::string text;
        int longest;
        Rows rows;
    } cases[] = {
        {"CR LF", "abc\r\nd\r\n", 5, {"abc", "d"}},
        {"bytes past the last LF are no line", "a\nbcdef", 2, {"a"}},
        {"an empty LF line moves the rows up", "a\n\n\nb\nc\n", 2, {"a", "", "b", "c", ""}},
        {"an empty first LF line swallows one", "\n\na\n", 2, {"", "a", ""}},
        {"an empty CR LF line has a row", "a\r\n\r\nb\r\n", 3, {"a", "", "b"}},
        {"a CR in a line pushes the last row out", "ab\rcd\ne\nf\n", 6, {"ab", "cd", "e"}},
        {"an empty file", "", 0, {}},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        THexFile file;
        EXPECT_TRUE(file.LoadFromFile(dir.Write("image.hex", c.text).c_str()));
        EXPECT_EQ(file.maxLineLength, c.longest);
        EXPECT_EQ(RowsOf(file), c.rows);
    }
}

TEST(LoadedFile, TakesLinesOf80BytesAndNothingThatCannotBeRead)
{
    const TempDir dir;
    const std::string longest(78, 'x');
    const std::string image = dir.Write("image.hex", kUpper + Data(0x400, "1.23"));
    const std::string tooLong = dir.Write("81.hex", longest + "x\r\n");
    const std::string pipe = dir.Path("pipe.hex");
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const auto descriptors = OpenDescriptors();
    THexFile file;
    ExpectNothingLoaded(file);
    for (const std::string& refused : {tooLong, dir.Path("missing.hex"), dir.Path(), pipe}) {
        EXPECT_TRUE(file.LoadFromFile(image.c_str()));
        EXPECT_FALSE(file.LoadFromFile(refused.c_str())) << refused;
        ExpectNothingLoaded(file);
    }
    EXPECT_TRUE(file.LoadFromFile(image.c_str()));
    EXPECT_TRUE(file.LoadFromFile(dir.Write("80.hex", "a\n" + longest + "\r\nb\n").c_str()));
    EXPECT_EQ(RowsOf(file), (Rows{"a", longest, "b"}));
    EXPECT_EQ(file.lines[1][80], '\0');
    EXPECT_STREQ(file.versionText, "");
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(LoadedFile, IsRefusedWhenItNeedsMoreMemoryThanThereIs)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs the address space for itself";
#endif
    const TempDir dir;
    const std::string rows = dir.Write("rows", std::string(79, 'x') + std::string(4 << 20, '\n'));
    const std::string bytes = dir.Write("bytes", "");
    EXPECT_EQ(truncate(bytes.c_str(), 1 << 30), 0);
    rlimit saved{};
    getrlimit(RLIMIT_AS, &saved);
    const rlimit little = {128 << 20, saved.rlim_max};
    setrlimit(RLIMIT_AS, &little);
    rlimit now{};
    getrlimit(RLIMIT_AS, &now);
    THexFile file;
    const bool isLoaded = file.LoadFromFile(rows.c_str()) || file.LoadFromFile(bytes.c_str());
    setrlimit(RLIMIT_AS, &saved);
    if (now.rlim_cur != little.rlim_cur)
        GTEST_SKIP() << "an emulator sets its guest no limit";
    EXPECT_FALSE(isLoaded);
    ExpectNothingLoaded(file);
}

TEST(LoadedFile, IsScannedForItsAddressesAndItsVersion)
{
    const struct {
        const char* name;
        std::string text;
        std::uint32_t start, end;
        const char* version = "";
    } cases[] = {
        {"last address, not highest", kUpper + Data(0x20, "a") + Data(8, "b"), kStart, kStart + 9},
        {"first upper address but 0", ":020000040000FA\n" + kUpper, kStart, kStart},
        {"no upper address", Data(0x30, "ab"), 0, 0x32},
        {"address wraps", ":02000004FFFFFC\n" + Data(0xFFFE, "abc"), 0xFFFF0000, 1},
        {"past the end", kUpper + ":00000001FF\n" + Data(0x10, "a"), kStart, kStart + 0x11},
        {"bad checksum, no colon", "x02000004900400\nx0100100041FF\n", kStart, kStart + 0x11},
        {"lower case reads as 0", ":02000004900a5C\n", 0x90000000, 0x90000000},
        {"first byte above 7F is text", "\xFF" + kUpper.substr(1), kStart, kStart},
        {"control character isn't", "\t" + kUpper.substr(1), 0, 0},
        {"upper address, count 0", ":000000049004\n", kStart, kStart},
        {"upper address, count 0, cut", ":00000004900\n", 0, 0},
        {"data without data", kUpper + ":04001000\n:0100200\n", kStart, kStart + 0x14},
        {"cut version", kUpper + ":0404000041424\n", kStart, kStart + 0x404, "AB"},
        {"version", kUpper + Data(0x400, "V1.2") + Data(0x404, "x"), kStart, kStart + 0x405,
         "V1.2"},
        {"second version", kUpper + Data(0x400, "V1.2") + Data(0x400, "V3"), kStart, kStart + 0x402,
         "V3"},
        {"version elsewhere", ":02000004900565\n" + Data(0x400, "V1"), 0x90050000, 0x90050402},
    };
    const TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        THexFile file;
        ASSERT_TRUE(file.LoadFromFile(dir.Write("image.hex", c.text).c_str()));
        EXPECT_EQ(file.startAddress, c.start);
        EXPECT_EQ(file.endAddress, c.end);
        EXPECT_STREQ(file.versionText, c.version);
    }
}

TEST(SentRecord, MovesTheAddressesOfTheSender)
{
    constexpr unsigned long kSent = 0x90040123;
    const struct {
        const char* record;
        unsigned long upper, sent;
        bool isUpper = false;
        unsigned long upperBefore = kStart;
    } cases[] = {
        {":0310000041424327", kStart, 0x90041003},
        {":02FFFF0041427D", 0xFFFF0000, 1, false, 0xFFFF0000},  // 32 bits on every machine
        {":02000004900565\r\n", 0x90050000, 0x90050000, true},
        {":03100000\r\n", kStart, 0x90041003},
        {":0310000\r\n", kStart, kSent},  // the line end is no digit
        {":020000049005\r\n", 0x90050000, 0x90050000, true},
        {":02000004900\r\n", kStart, kSent},
        {":00000001FF", kStart, kSent},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.record);
        unsigned long upper = c.upperBefore;
        unsigned long sent = kSent;
        EXPECT_EQ(THexFile().GetSendedAddress(c.record, &upper, &sent), c.isUpper);
        EXPECT_EQ(upper, c.upper);
        EXPECT_EQ(sent, c.sent);
    }
}
