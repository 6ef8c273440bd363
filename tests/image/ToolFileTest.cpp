// Firmware files as other people's tools make them from a real binary.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "Compress.h"
#include "ImageText.h"
#include "THexFile.h"
#include "TempDir.h"

namespace {

constexpr std::uint32_t kStart = 0x90040000;
constexpr std::size_t kVersionAt = 0x400;
constexpr char kVersion[] = "V2.10-7";

// Several pages, with a version and, before it, the hole that makes it begin a record of its own
// whatever the record's length.
std::string FirmwareWithVersion()
{
    std::string bytes = Firmware(0x25123);
    bytes.replace(kVersionAt - 16, 16, 16, '\xFF');
    bytes.replace(kVersionAt, sizeof(kVersion), kVersion, sizeof(kVersion));
    return bytes;
}

bool Shell(const std::string& command)
{
    // NOLINTNEXTLINE(cert-env33-c): the test's own words
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

// The flash that the rows of a loaded file would leave.
std::string FlashOf(const THexFile& file, std::size_t size)
{
    std::string flash(size, '\xFF');
    std::size_t page = 0;
    for (int i = 0; i < file.lineCount; ++i) {
        const std::string row = file.lines[i];
        const auto number = [&row](std::size_t at, std::size_t digits) {
            return std::stoul(row.substr(at, digits), nullptr, 16);
        };
        if (number(7, 2) == 4)
            page = (number(9, 4) << 16U) - kStart;
        for (std::size_t n = 0; number(7, 2) == 0 && n < number(1, 2); ++n)
            flash.at(page + number(3, 4) + n) = static_cast<char>(number(9 + 2 * n, 2));
    }
    return flash;
}

void ExpectImage(const std::string& path, const std::string& firmware)
{
    THexFile file;
    ASSERT_TRUE(file.LoadFromFile(path.c_str()));

    EXPECT_EQ(file.startAddress, kStart);
    EXPECT_EQ(file.endAddress, kStart + firmware.size());
    EXPECT_STREQ(file.versionText, kVersion);
    EXPECT_EQ(FlashOf(file, firmware.size()), firmware);
}

}  // namespace

TEST(ToolFile, OfSrecCatLoadsWithEveryRecordLengthAndLineEnd)
{
    const TempDir dir;
    const std::string firmware = FirmwareWithVersion();
    const std::string binary = dir.Write("firmware.bin", firmware);
    const std::string hex = dir.Path("firmware.hex");
    std::string command = "srec_cat " + binary + " -binary -offset 0x90040000";
    command += " -exclude 0x900403F0 0x90040400 -Output " + hex + " -Intel";
    for (const char* length : {"12", "16", "32"}) {
        for (const char* lineEnd : {"NewLine", "CRLF"}) {
            std::string options = " -Output_Block_Size=";
            options.append(length).append(" -Line_Termination=").append(lineEnd);
            SCOPED_TRACE(options);
            ASSERT_TRUE(Shell(command + options));

            ExpectImage(hex, firmware);
        }
    }
}

TEST(ToolFile, OfObjcopyLoadsAndTravelsCompressed)
{
    const TempDir dir;
    const std::string firmware = FirmwareWithVersion();
    const std::string binary = dir.Write("firmware.bin", firmware);
    const std::string hex = dir.Path("firmware.hex");
    ASSERT_TRUE(
        Shell("objcopy -I binary -O ihex --change-addresses 0x90040000 " + binary + " " + hex));

    ExpectImage(hex, firmware);

    const std::string rlg = dir.Path("firmware.rlg");
    const std::string expanded = dir.Path("expanded.hex");
    EXPECT_TRUE(Compress(hex.c_str(), rlg.c_str()));
    EXPECT_TRUE(Decompress(rlg.c_str(), expanded.c_str()));
    EXPECT_LT(dir.Read("firmware.rlg").size(), firmware.size());
    ExpectImage(expanded, firmware);
}
