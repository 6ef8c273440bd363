#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "HexCheck.h"
#include "HexText.h"

using namespace std::string_literals;

namespace {

constexpr Severity kError = Severity::Error;
constexpr Severity kWarning = Severity::Warning;

std::string Data(std::size_t address, const std::string& bytes)
{
    return Record(0, address, bytes) + "\n";
}

std::string Base(char low)
{
    return Record(4, 0, {'\x90', low}) + "\n";
}

// The lines of a good file.
const std::string kBase = Base(4);
const std::string kVersion = Data(0x400, "V1.0");
const std::string kSecond = Data(0x404, "abcd");
const std::string kThird = Data(0x408, "efgh");
const std::string kEnd = ":00000001FF\n";
const std::string kHead = kBase + kVersion;
const std::string kFarBase = Record(4, 0, "\x92\0"s) + "\n";

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
    const struct {
        std::string text;
        std::size_t line;
        Severity severity;
        const char* sentence;
        std::size_t findings = 1;
    } rows[] = {
        {kHead + "0" + kSecond + rest, 3, kError, "not a record"},
        {kHead + ":0404\n" + rest, 3, kError, "cut short: 5 characters of 11"},
        {kHead + kSecond.substr(0, 15) + "\n" + rest, 3, kError, "cut short: 15 characters of 19"},
        {kHead + ":040404006162636469\n" + rest, 3, kError, "wrong checksum"},
        {kHead + ":04040400616263646a\n" + rest, 3, kError, "\"a\" is not an upper-case hex digit"},
        {kHead + ":0404040061626364 6A\n" + rest, 3, kError, "0x20 is not an upper-case hex digit"},
        {kHead + ":0404040061626364~A\n" + rest, 3, kError, "\"~\" is not an upper-case hex digit"},
        {kHead + ":04040400616263646A \n" + rest, 3, kError, "after the checksum: 1"},
        {kHead + ":0404\r040061626364\n" + rest, 3, kError, "a CR or NUL"},
        {kHead + ":04040\0:0061626364\n"s + rest, 3, kError, "a CR or NUL"},
        {kHead + kSecond + "\n" + rest, 4, kError, "a blank line"},
        {kHead + std::string(80, ':') + "\n" + rest, 3, kError, "a line of 81 bytes"},
        {kHead + kSecond + Record(2, 0, "\x10\0"s) + "\n" + rest, 4, kError, "type 2"},
        {kHead + kSecond + Record(6, 0, "") + "\n" + rest, 4, kError, "type 6, which the unit"},
        {kHead + kSecond + Record(4, 0, "\x90") + "\n" + rest, 4, kError, "exactly 2 bytes"},
        {kVersion + kSecond + kEnd, 1, kError, "before the first address record", 3},
        {":0\n" + kVersion + kSecond + kEnd, 1, kError, "cut short", 4},
        {kHead + kSecond + kSecond + rest, 4, kError, "go backwards to 90040404"},
        {Base(5) + Data(0, "x") + kHead + kEnd, 4, kError, "go backwards to 90040400"},
        {kHead + rest, 3, kError, "gap of 4 bytes from 90040404"},
        {kHead + Data(0x405, "x") + kEnd, 3, kError, "gap of 1 byte from 90040404"},
        {kBase + kBase + kVersion + kEnd, 1, kError, "no data follows this address record"},
        {kHead + kSecond + rest + kThird + kThird, 6, kError, "follows the end record"},
        {kHead + kSecond + kThird, 4, kError, "no end record"},
        {kBase + kEnd, 1, kError, "no data follows", 2},
        {"", 0, kError, "no data", 2},
        {kHead + kSecond + kThird + ":00000001FF", 5, kError, "no line end"},
        {kHead + WithCrLf(kSecond) + rest, 3, kError, "a character was lost or added"},
        {WithCrLf(kHead) + kSecond + rest, 3, kError, "a character was lost or added"},
        {kHead + Base(5) + Data(34, "x") + kEnd, 4, kError, "gap of 34 bytes from 90050000"},
        {kHead + Base(5) + Data(35, "x") + kEnd, 4, kWarning, "gap of 64543 bytes from 90040404"},
        {kHead + Base(5) + "x\n" + Base(6) + Data(0, "x") + kEnd, 4, kError, "not a record"},
        {kHead + Base(5) + Record(4, 0, "\x90") + "\n" + Base(6) + Data(0, "x") + kEnd, 3, kError,
         "no data follows", 3},
        {kHead + Base(5) + Data(0, "x") + kEnd, 4, kWarning, "a gap of 64508 bytes from 90040404"},
        {kHead + kSecond + Record(5, 0, "\0\0\0\0"s) + "\n" + rest, 4, kWarning, "type 5"},
        {kBase + Data(0x1FF0, std::string(16, 'x')) + Record(5, 0, "\0\0\0\0"s) + "\n" + kEnd, 3,
         kError, "no block of data is open", 2},
        {Record(3, 0, "\0\0\0\0"s) + "\n" + kHead + rest, 1, kError, "no block of data is open", 2},
        {kHead + kSecond + Record(3, 0, "\0\0\0\0"s) + "\n" + rest, 4, kWarning, "type 3"},
        {kHead + Record(0, 0x404, "") + "\n" + kSecond + kEnd, 3, kWarning, "without data"},
        {kBase + Record(0, 0, "") + "\n" + kVersion + kEnd, 2, kError, "without data; no block"},
        {Record(4, 2, "\x90\x04") + "\n" + kVersion + kEnd, 1, kWarning, "at 0002, not 0000"},
        {kHead + Record(4, 0, "\x91\0"s) + "\n" + Data(0, "x") + Data(1, "x") + kFarBase +
             Data(0, "x") + kEnd,
         4, kWarning, "a gap", 4},
        {Record(4, 0, "\x90\xFF") + "\n" + Data(0xFFF0, std::string(32, 'x')) + kEnd, 2, kError,
         "data at 91000000, outside the flash (90000000 to 90FFFFFF)", 3},
        {Record(4, 0, "\xFF\xFF") + "\n" + Data(0xFFF0, std::string(16, 'x')) + kEnd, 2, kError,
         "reaches the last address", 3},
        {kHead + Record(4, 0, "\x90\xFF") + "\n" + Data(0xFFF0, std::string(16, 'x')) + kEnd, 4,
         kWarning, "a gap"},
        {kBase + Data(0x400, "\0V1"s) + kEnd, 3, kWarning, "no version text in a record"},
        {kBase + Data(0x3F0, std::string(32, 'x')) + kEnd, 3, kWarning,
         "no version text in a record"},
        {Base(4) + Data(0x400, std::string(17, 'V')) + Base(4) + Data(0x411, "x") + kEnd, 0,
         kWarning, "", 0},
        {Base(5) + Data(0x1FF0, std::string(17, 'V')) + kEnd, 2, kWarning, "steps over 90052000",
         2},
        {Base(5) + Data(0x1FF0, std::string(17, 'V')) + Base(6) +
             Data(0x1FF0, std::string(17, 'V')) + kEnd,
         2, kWarning, "steps over 90052000", 3},
        {kHead + Data(0x404, std::string(34, 'x')) + kEnd, 0, kWarning, "", 0},  // 80 bytes
        {kHead + kSecond + rest + "\n", 0, kWarning, "", 0},
        {WithCrLf(kHead + kSecond + rest), 0, kWarning, "", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text) + ": " + row.sentence);
        const HexReport report = CheckHex(row.text);
        ASSERT_EQ(report.findings.size(), row.findings);
        EXPECT_EQ(report.errors + report.warnings, row.findings);
        if (row.findings == 0)
            continue;
        const Finding& first = report.findings.front();
        EXPECT_EQ(first.line, row.line);
        EXPECT_EQ(first.severity, row.severity);
        EXPECT_NE(first.text.find(row.sentence), std::string::npos) << first.text;
    }
}

TEST(HexCheck, MarksDataOutsideTheFlash)
{
    const std::string text = kFarBase + Data(0, "x") + kHead + kSecond + kEnd;
    EXPECT_GT(CheckHex(text).errors, CheckHex(text, kWarning).errors);
    for (const Finding& finding : CheckHex(text, kWarning).findings)
        EXPECT_EQ(finding.isOutsideFlash, finding.line == 2 && finding.severity == kWarning);
}

TEST(HexCheck, SummarizesLoadedData)
{
    const std::string block(32, '\xFF');
    std::string text = Base(4);
    for (std::size_t at = 0; at < 0x4020; at += 32)
        text += Data(at, at == 0x400 ? "V2"s + '\0' + block.substr(3) : block);
    const HexReport report = CheckHex(WithCrLf(text + Base(6) + Data(0, "abc") + kEnd));
    EXPECT_EQ(report.errors, 0U);
    EXPECT_EQ(report.version, "V2");
    EXPECT_EQ(report.bytes, 0x4023U);
    EXPECT_EQ(report.records, 0x201U + 4U);
    EXPECT_EQ(report.blocks, 3U);
    EXPECT_EQ(report.lineEnds, LineEnds::CrLf);
    ASSERT_EQ(report.ranges.size(), 2U);
    EXPECT_EQ(report.ranges[0].start, 0x90040000U);
    EXPECT_EQ(report.ranges[0].size, 0x4020U);
    EXPECT_EQ(report.ranges[1].start, 0x90060000U);

    EXPECT_EQ(CheckHex(kVersion + kEnd).findings[0].address, 0x400U);
    EXPECT_EQ(CheckHex(kHead + "x").findings[0].address, std::nullopt);
    EXPECT_EQ(CheckHex(kHead + "x\n").findings[0].address, 0x90040404U);
    EXPECT_EQ(CheckHex(kHead + Base(5) + "x\n").findings[0].address, 0x90050000U);

    const struct {
        std::string added, version;
    } versions[] = {
        {Data(0x400, "V2"), "V2"},                  // the last one counts
        {Data(0x400, ""), ""},                      // an empty one, too
        {":0204000056327A\n", "V2"},                // whatever its checksum
        {":030400005632\n", "V2"},                  // as far as it goes
        {kEnd + Data(0x400, "V2"), "V2"},           // after the end
        {Data(0x400, "V2").substr(0, 14), "V1.0"},  // but a complete line
        {":02000004ZZ047A\n" + Data(0x400, "V2"), "V1.0"},
    };
    for (const auto& row : versions)
        EXPECT_EQ(CheckHex(kHead + row.added).version, row.version) << row.added;

    const HexReport garbage = CheckHex(std::string(2000, '\n'));
    EXPECT_EQ(garbage.findings.size(), 1000U);
    EXPECT_EQ(garbage.errors, 2002U);
}

// Each way to damage a small file at each place.
TEST(HexCheck, FindsEveryDamageAndNoneInGoodFiles)
{
    constexpr std::size_t kTypeAt = 8;  // the last digit of a record's type
    for (const char* end : {"\n", "\r\n"}) {
        std::vector<std::string> lines;
        std::string good;
        for (const char page : "\x04\x05\x07"s) {
            lines.push_back(Record(4, 0, {'\x90', page}) + end);
            for (std::size_t at = 0; at < 3; ++at)
                lines.push_back(Record(0, 33 * at, Firmware(33)) + end);
        }
        lines.push_back(":00000001FF" + std::string(end));
        for (const std::string& line : lines)
            good += line;
        std::vector<std::string> damaged;
        for (std::size_t at = 0; at < good.size(); ++at) {
            damaged.push_back(good.substr(0, at));
            damaged.push_back(std::string(good).erase(at, 1));
            for (const char added : "08:AF x\r\n"s) {
                damaged.push_back(std::string(good).insert(at, 1, added));
                if (good[at] >= '0')
                    damaged.push_back(std::string(good).replace(at, 1, 1, added));
            }
        }
        for (std::size_t i = 0, at = 0; i + 1 < lines.size(); at += lines[i++].size()) {
            damaged.push_back(std::string(good).insert(at, lines[i]));
            damaged.push_back(std::string(good).erase(at, lines[i].size()));
            damaged.back().insert(at + lines[i + 1].size(), lines[i]);
            // The last line of a section can't be missed.
            if (lines[i][kTypeAt] == '4' || lines[i + 1][kTypeAt] == '0')
                damaged.push_back(std::string(good).erase(at, lines[i].size()));
        }
        const std::set<std::string> harmless = {good, good + "\n"};
        EXPECT_EQ(CheckHex(good).errors, 0U);
        for (const std::string& text : damaged)
            EXPECT_TRUE(harmless.count(text) > 0 || CheckHex(text).errors > 0) << text;
    }
}
