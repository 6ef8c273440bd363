#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "HexText.h"
#include "THexFile.h"
#include "TSStringList.h"
#include "TempDir.h"

using namespace std::string_literals;

namespace {

const std::string kUpper = ":02000004900466";
const std::string kData = ":0300000041424337";  // ABC at 0
constexpr std::uint32_t kStart = 0x90040000;

// A copy with not a byte to spare, so that a read past the text's end shows.
std::vector<char> Exactly(const std::string& text)
{
    return {text.c_str(), text.c_str() + text.size() + 1};
}

}  // namespace

TEST(CheckedRecord, IsAcceptedWhereItGoesOnFromTheLast)
{
    const struct {
        const char* name;
        std::vector<std::string> accepted;
        std::string record;
        int result;
        std::uint32_t next;
    } cases[] = {
        {"upper address", {}, kUpper, 0, kStart},
        {"data", {kUpper}, kData, 0, kStart + 3},
        {"data after data", {kUpper, kData}, ":0100030044B8", 0, kStart + 4},
        {"jump", {kData}, kUpper, 0, kStart},
        {"no data", {kUpper}, ":0000000000", 0, kStart},
        {"more after the checksum", {kUpper}, kData + "xx", 0, kStart + 3},
        {"upper address, third byte not summed", {}, ":0300000490047765", 0, kStart},
        {"upper address that is its own checksum", {}, ":00000004FE00", 0, 0xFE000000},
        {"end", {kUpper}, ":00000001FF", -1, kStart},
        {"end with a wrong checksum", {}, ":0000000100", -1, 0},
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        THexFile file;
        std::string kept;
        for (const std::string& record : c.accepted) {
            ASSERT_EQ(file.CheckIntelHex(record.c_str()), 0);
            kept += record;
        }
        EXPECT_EQ(file.CheckIntelHex(Exactly(c.record).data()), c.result);

        EXPECT_EQ(file.GetNextAddress(), c.next);
        EXPECT_TRUE(file.SaveToFile(dir.Path("kept.hex").c_str()));
        EXPECT_EQ(dir.Read("kept.hex"), c.result <= 0 ? kept + c.record : kept);
    }
}

TEST(CheckedRecord, IsRefusedWhereverItIsCut)
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
            EXPECT_EQ(file.baseAddress, 0U);
            EXPECT_EQ(file.GetNextAddress(), 0U);
            EXPECT_EQ(file.checkedLines->count, 0);
        }
        EXPECT_LE(THexFile().CheckIntelHex(Exactly(record).data()), 0);
    }
}

TEST(CheckedRecord, IsForgottenByAReset)
{
    const TempDir dir;
    THexFile file;
    EXPECT_EQ(file.CheckIntelHex(":02000004900467"), 4);
    EXPECT_EQ(file.baseAddress, kStart) << "even with a wrong checksum";
    EXPECT_EQ(file.CheckIntelHex(kUpper.c_str()), 0);
    file.Reset();
    EXPECT_EQ(file.GetNextAddress(), 0U);
    EXPECT_TRUE(file.SaveToFile(dir.Write("old.hex", "old").c_str()));
    EXPECT_EQ(dir.Read("old.hex"), "");
    EXPECT_EQ(file.CheckIntelHex(kData.c_str()), 0) << "data at 0 is what comes next";
    EXPECT_FALSE(file.SaveToFile(dir.Path("missing/out.hex").c_str()));
}
