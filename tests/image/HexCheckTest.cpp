// What can be known of a file before the unit gets it: findings, a summary, bytes by address.

#include <malloc.h>

#include <gtest/gtest.h>

#include "HexCheck.h"
#include "HexText.h"
#include "Image.h"

using namespace std::string_literals;

namespace {

constexpr Severity kError = Severity::Error;
constexpr Severity kWarning = Severity::Warning;

std::string Row(unsigned type, std::size_t address, const std::string& bytes)
{
    return Record(type, address, bytes) + "\n";
}

std::string Data(std::size_t address, const std::string& bytes)
{
    return Row(0, address, bytes);
}

std::string Base(unsigned upper)
{
    return Row(4, 0, {static_cast<char>(upper >> 8U), static_cast<char>(upper)});
}

// The lines of a good file.
const std::string kVersion = Data(0x400, "V1.0");
const std::string kSecond = Data(0x404, "abcd");
const std::string kThird = Data(0x408, "efgh");
const std::string kEnd = ":00000001FF\n";
const std::string kHead = Base(0x9004) + kVersion;
const std::string k16(16, 'x');

std::string WithCrLf(std::string text)
{
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2)
        text.insert(at, "\r");
    return text;
}

}  // namespace

TEST(HexCheck, NamesLineAndCause)
{
    const std::string rest = kThird + kEnd;
    const std::string start = "\0\0\0\0"s;
    const std::string colon = "not a record: it does not begin with \":\"";
    const std::string ended = "a CR or NUL inside the line, at which the unit ends it";
    const std::string lost = " puts the data: a line may be lost";
    const std::string alone =
        ", a program's start, which means nothing to a flash; no block of data is open here, and "
        "the board answers only data, so the unit waits until it gives up";
    const struct {
        std::string text;
        std::size_t line;
        Severity severity;
        std::string sentence;
        std::size_t findings = 1;
    } rows[] = {
        {kHead + "0" + kSecond + rest, 3, kError, colon},
        {kHead + ":0404\n" + rest, 3, kError, "the record is cut short: 5 characters of 11"},
        {kHead + ":040404006162636469\n" + rest, 3, kError, "wrong checksum"},
        {kHead + ":04040400616263646a\n" + rest, 3, kError,
         "\"a\" is not an upper-case hex digit, and the unit reads it as 0"},
        {kHead + ":0404040061626364 6A\n" + rest, 3, kError,
         "the character 0x20 is not an upper-case hex digit, and the unit reads it as 0"},
        {kHead + ":04040400616263646A \n" + rest, 3, kError, "characters after the checksum: 1"},
        {kHead + ":0404\r040061626364\n" + rest, 3, kError, ended},
        {kHead + ":04040\0:0061626364\n"s + rest, 3, kError, ended},
        {kHead + kSecond + "\n" + rest, 4, kError, "a blank line before the end record"},
        {kHead + std::string(80, ':') + "\n" + rest, 3, kError,
         "a line of 81 bytes: the unit loads no file with more than 80 in a line"},
        {kHead + kSecond + Row(2, 0, "\x10\0"s) + rest, 4, kError,
         "a record of type 2, which the unit does not know"},
        {kHead + kSecond + Row(4, 0, "\x90") + rest, 4, kError,
         "an address record (type 4) without exactly 2 bytes"},
        {kVersion + kSecond + kEnd, 1, kError,
         "data before the first address record (type 4): its address is unknown", 3},
        {kHead + kSecond + kSecond + rest, 4, kError,
         "the addresses go backwards to 90040404; the data before ends at 90040408"},
        {kHead + Data(0x405, "x") + kEnd, 3, kError,
         "a gap of 1 byte from 90040404, which no address record (type 4) introduces: a line may "
         "be lost"},
        {kHead + kSecond + rest + kThird + kThird, 6, kError, "more follows the end record"},
        {kHead + kSecond + kThird, 4, kError, "no end record (type 1): the board waits for more"},
        {Base(0x9004) + kEnd, 1, kError, "no data follows this address record (type 4)", 2},
        {"", 0, kError, "the file has no data", 2},
        {kHead + kSecond + kThird + ":00000001FF", 5, kError,
         "the last line has no line end, so the unit does not load it; the file may be cut off"},
        {WithCrLf(kHead) + kSecond + rest, 3, kError,
         "the line end is not that of the lines before: a character was lost or added"},
        {kHead + Base(0x9005) + Data(34, "x") + kEnd, 4, kError,
         "a gap of 34 bytes from 90050000, where the address record in line 3" + lost},
        {kHead + Base(0x9005) + Data(1, "x") + kEnd, 4, kError,
         "a gap of 1 byte from 90050000, where the address record in line 3" + lost},
        {kHead + Base(0x9005) + Data(35, "x") + kEnd, 4, kWarning,
         "a gap of 64543 bytes from 90040404"},
        {kHead + Base(0x9005) + "x\n" + Base(0x9006) + Data(0, "x") + kEnd, 4, kError, colon},
        {Base(0x9004) + Data(0x1FF0, k16) + Row(5, 0, start) + kEnd, 3, kError,
         "a record of type 5" + alone, 2},
        {Row(3, 0, start) + kHead + rest, 1, kError, "a record of type 3" + alone, 2},
        {kHead + Row(0, 0x404, "") + kSecond + kEnd, 3, kWarning, "a data record without data"},
        {Row(4, 2, "\x90\x04") + kVersion + kEnd, 1, kWarning,
         "an address record (type 4) at 0002, not 0000, which the unit ignores"},
        {kHead + Base(0x9100) + Data(0, "x") + Data(1, "x") + Base(0x9200) + Data(0, "x") + kEnd, 4,
         kWarning, "a gap of 16514044 bytes from 90040404", 4},
        {Base(0x8FFF) + Data(0xFFFF, "x") + kHead + kEnd, 2, kError,
         "data at 8FFFFFFF, outside the flash (90000000 to 90FFFFFF)", 2},
        {Base(0x9000) + Data(0, "x") + kHead + kEnd, 4, kWarning,
         "a gap of 263167 bytes from 90000001"},
        {Base(0x90FF) + Data(0xFFF0, k16 + k16) + kEnd, 2, kError,
         "data at 91000000, outside the flash (90000000 to 90FFFFFF)", 3},
        {Base(0xFFFF) + Data(0xFFF0, k16) + kEnd, 2, kError,
         "the data reaches the last address, FFFFFFFF", 3},
        {kHead + Base(0x90FF) + Data(0xFFF0, k16) + kEnd, 4, kWarning,
         "a gap of 16514028 bytes from 90040404"},
        {Base(0x9004) + Data(0x400, "\0V1"s) + kEnd, 3, kWarning,
         "no version text in a record that begins at 90040400"},
        {Base(0x9005) + Data(0x1FF0, k16 + "V") + Base(0x9006) + Data(0x1FF0, k16 + "V") + kEnd, 2,
         kWarning, "the record steps over 90052000, so that the board answers later than usual", 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text) + ": " + row.sentence);
        const HexReport report = CheckHex(row.text);
        ASSERT_EQ(report.findings.size(), row.findings);
        EXPECT_EQ(report.errors + report.warnings, row.findings);
        const Finding& first = report.findings.front();
        EXPECT_EQ(std::pair(first.line, first.severity), std::pair(row.line, row.severity));
        EXPECT_EQ(first.text, row.sentence);
        EXPECT_EQ(first.isOutsideFlash, first.text.find("outside the flash") != std::string::npos);
    }
    EXPECT_EQ(CheckHex(Base(0x9200) + Data(0, "x") + kHead + kEnd, kWarning).errors, 1U);
    std::string again = Base(0x9004) + Data(0x400, k16 + "V");
    again += Base(0x9004) + Data(0x411, "x") + kEnd;
    const std::string goods[] = {kHead + Data(0x404, std::string(34, 'x')) + kEnd,  // 80 bytes
                                 again, kHead + kSecond + rest + "\n", WithCrLf(kHead + kEnd)};
    for (const std::string& good : goods)
        EXPECT_EQ(CheckHex(good).findings.size(), 0U) << good;
}

TEST(HexCheck, SummarizesLoadedData)
{
    EXPECT_EQ(CheckHex(kHead + kEnd).blocks, 1U) << "the last one is open";
    EXPECT_EQ(CheckHex(Base(0x9004) + Data(0x1FFF, "x") + kEnd).blocks, 1U) << "or ends there";
    EXPECT_EQ(CheckHex(WithCrLf(kHead + kEnd)).lineEnds, LineEnds::CrLf);

    const std::pair<std::string, std::optional<std::uint32_t>> addresses[] = {
        {kVersion + kEnd, 0x400U},
        {kHead + "x", std::nullopt},
        {kHead + "x\n", 0x90040404U},
        {kHead + Base(0x9005) + "x\n", 0x90050000U},
    };
    for (const auto& [damaged, address] : addresses)
        EXPECT_EQ(CheckHex(damaged).findings[0].address, address) << damaged;

    const std::pair<std::string, const char*> versions[] = {
        {Data(0x400, "V2"), "V2"},                  // the last one counts
        {Data(0x400, ""), ""},                      // an empty one, too
        {":030400005632\n", "V2"},                  // as far as it goes
        {kEnd + Data(0x400, "V2"), "V2"},           // after the end
        {Data(0x400, "V2").substr(0, 14), "V1.0"},  // but a complete line
        {":02000004ZZ047A\n" + Data(0x400, "V2"), "V1.0"},
    };
    for (const auto& [added, version] : versions)
        EXPECT_EQ(CheckHex(kHead + added).version, version) << added;

    const HexReport garbage = CheckHex(std::string(2000, '\n'));
    EXPECT_EQ(garbage.findings.size(), 1000U);
    EXPECT_EQ(garbage.errors, 2002U);
}

// Each way to damage a small file at each place.
TEST(HexCheck, FindsEveryDamageAndNoneInGoodFiles)
{
    std::string lf;
    for (const unsigned upper : {0x9004U, 0x9005U, 0x9007U})
        lf += Base(upper) + Data(0, Firmware(33)) + Data(33, Firmware(33)) + Data(66, Firmware(33));
    lf += kEnd;
    for (const std::string& good : {lf, WithCrLf(lf)}) {
        const auto expectError = [&](std::size_t at, std::size_t size, const std::string& by) {
            const std::string text = std::string(good).replace(at, size, by);
            EXPECT_TRUE(text == good || text == good + "\n" || CheckHex(text).errors > 0) << text;
        };
        EXPECT_EQ(CheckHex(good).errors, 0U);
        for (std::size_t at = 0; at < good.size(); ++at) {
            expectError(at, std::string::npos, "");
            expectError(at, 1, "");
            for (const char added : "08:AF x\r\n"s) {
                expectError(at, 0, {added});
                expectError(at, good[at] >= '0' ? 1 : 0, {added});
            }
        }
        // Lines twice, in each other's place, and missing, which the last of a section can't be.
        for (std::size_t at = 0, next = 0; (next = good.find('\n', at) + 1) < good.size();
             at = next) {
            const std::string line = good.substr(at, next - at);
            const std::string other = good.substr(next, good.find('\n', next) + 1 - next);
            expectError(at, 0, line);
            expectError(at, line.size() + other.size(), other + line);
            if (line[8] == '4' || other[8] == '0')  // the type's last digit
                expectError(at, line.size(), "");
        }
    }
}

TEST(Image, FindsBytesByAddressAndNoneElsewhere)
{
    const Image image(Base(0x9004) + Data(0xFFFE, "ab") + Base(0x9005) + Record(0, 1, "cd\0"s) +
                      "\r\n" + Base(0x9005) + Data(0, "x") + Base(0x9007) + Data(5, "e") +
                      Record(5, 8, "0123") + "\r\n" + Record(0, 6, "f"));
    std::string found;
    for (const std::uint32_t address :
         {0x9004FFFDU, 0x9004FFFEU, 0x9004FFFFU, 0x90050000U, 0x90050001U, 0x90050002U, 0x90050003U,
          0x90050004U, 0x9007FFFFU, 0x90070005U, 0x90070006U, 0x90070008U, 0U, 0xFFFFFFFFU}) {
        const std::int16_t byte = image.At(address);
        found += byte == Image::kNoData ? '-' : static_cast<char>(byte);
    }
    EXPECT_EQ(found, "-ab-cd\0--e----"s)
        << "bytes that go back, a program's start and a cut line are left out";
    EXPECT_EQ(Image().At(0), Image::kNoData);
}

TEST(Image, TakesMemoryByItsDataHoweverScattered)
{
    std::string text;
    for (unsigned page = 0; page < 0x10000; ++page)
        text += Base(page) + Data(0, "x");
    const auto used = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const std::size_t before = used();
    const Image image(text);
    EXPECT_EQ(image.At(0), 'x');
    EXPECT_LE(used() - before, 0x200000U);
}
