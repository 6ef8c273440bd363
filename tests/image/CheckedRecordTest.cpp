#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ImageText.h"
#include "THexFile.h"
#include "TSStringList.h"
#include "TempDir.h"

using namespace std::string_literals;

namespace {

const std::string kUpper = ":02000004900466";
const std::string kData = ":0300000041424337";  // ABC at 0
constexpr std::uint32_t kStart = 0x90040000;

// A copy with not a byte to spare, so that a read behind the text's end shows.
std::unique_ptr<char[]> Exactly(const std::string& text)
{
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
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
        {"data behind data", {kUpper, kData}, ":0100030044B8", 0, kStart + 4},
        {"data at 0", {}, kData, 0, 3},
        {"jump", {kData}, kUpper, 0, kStart},
        {"last page", {":02000004FFFFFC"}, kData, 0, 0xFFFF0003},
        {"no data", {kUpper}, ":0000000000", 0, kStart},
        {"line end", {kUpper}, kData + "\r\n", 0, kStart + 3},
        {"more behind the checksum", {kUpper}, kData + "xx", 0, kStart + 3},
        {"upper address, third byte not summed", {}, ":0300000490047765", 0, kStart},
        {"upper address that is its own checksum", {}, ":00000004FE00", 0, 0xFE000000},
        {"end", {kUpper}, ":00000001FF", -1, kStart},
        {"end with a wrong checksum", {}, ":0000000100", -1, 0},
        {"gap", {kUpper}, Record(0, 1, "abc"), 5, kStart},
        {"repeated data", {kUpper, kData}, kData, 5, kStart + 3},
        {"wrong address and checksum", {kUpper}, ":0300010041424337", 5, kStart},
        {"wrong checksum", {kUpper}, ":0300000041424338", 4, kStart},
        {"wrong data", {kUpper}, ":0300000041434337", 4, kStart},
        {"upper address, wrong checksum", {}, ":02000004900467", 4, 0},
        {"segment address", {kUpper}, ":020000021000EC", 3, kStart},
        {"start address", {kUpper}, ":040000059004000063", 3, kStart},
        {"lower case data is 0", {kUpper}, ":01000000aF50", 4, kStart},
        {"lower case address is 0", {kUpper}, ":01000a0041BE", 0, kStart + 1},
        {"bytes above 7F are 0", {kUpper}, ":\xFF\xFF\x80\x80\xFF\xFF\xFF\xFF\xFF\xFF", 0, kStart},
        {"no colon", {kUpper}, "0300000041424337", 1, kStart},
        {"blank in front", {kUpper}, " " + kData, 1, kStart},
        {"line end alone", {kUpper}, "\r\n", 1, kStart},
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

        EXPECT_EQ(file.CheckIntelHex(Exactly(c.record).get()), c.result);

        EXPECT_EQ(file.GetNextAddress(), c.next);
        EXPECT_TRUE(file.SaveToFile(dir.Path("kept.hex").c_str()));
        EXPECT_EQ(dir.Read("kept.hex"), c.result <= 0 ? kept + c.record : kept);
    }
}

TEST(CheckedRecord, MovesTheBaseAddressEvenWithAWrongChecksum)
{
    THexFile file;

    EXPECT_EQ(file.CheckIntelHex(":02000004900467"), 4);

    EXPECT_EQ(file.baseAddress, kStart);
    EXPECT_EQ(file.CheckIntelHex(kData.c_str()), 5);
}

TEST(CheckedRecord, IsRefusedWhereverItIsCut)
{
    const std::string longest = Record(0, 0, std::string(255, 'x'));
    for (const std::string& record : {kUpper, kData, longest, ":00000001FF"s, ":00000004FE00"s}) {
        for (std::size_t length = 0; length < record.size(); ++length) {
            for (const char* lineEnd : {"", "\r\n", "\n"}) {
                SCOPED_TRACE(record.substr(0, length));
                const auto cut = Exactly(record.substr(0, length) + lineEnd);
                THexFile file;
                unsigned long upper = 0x80000000;
                unsigned long sent = 0x80000010;

                EXPECT_EQ(file.CheckIntelHex(cut.get()), length == 0 ? 1 : 2);
                EXPECT_FALSE(file.GetSendedAddress(cut.get(), &upper, &sent));

                EXPECT_EQ(file.baseAddress, 0U);
                EXPECT_EQ(file.GetNextAddress(), 0U);
                EXPECT_EQ(file.checkedLines->count, 0);
                EXPECT_EQ(upper, 0x80000000);
                EXPECT_EQ(sent, 0x80000010);
            }
        }
        EXPECT_LE(THexFile().CheckIntelHex(Exactly(record).get()), 0);
    }
}

TEST(CheckedRecord, IsForgottenByAReset)
{
    const TempDir dir;
    THexFile file;
    file.CheckIntelHex(kUpper.c_str());
    file.CheckIntelHex(kData.c_str());

    file.Reset();

    EXPECT_EQ(file.GetNextAddress(), 0U);
    EXPECT_TRUE(file.SaveToFile(dir.Write("old.hex", "old").c_str()));
    EXPECT_EQ(dir.Read("old.hex"), "");
    EXPECT_EQ(file.CheckIntelHex(kData.c_str()), 0) << "data at 0 is what comes next";
    EXPECT_FALSE(file.SaveToFile(dir.Path("missing/out.hex").c_str()));
}
