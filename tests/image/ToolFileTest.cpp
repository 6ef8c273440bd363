// Firmware files that other tools write and read.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "Compress.h"
#include "HexText.h"
#include "THexFile.h"
#include "TempDir.h"

namespace {

constexpr char kVersion[] = "V2.10-7";

// Several pages, with a version.
std::string FirmwareWithVersion()
{
    std::string bytes = Firmware(0x25123);
    return bytes.replace(0x400, sizeof(kVersion), kVersion, sizeof(kVersion));
}

bool RunTool(const std::string& command)
{
    // NOLINTNEXTLINE(cert-env33-c): the test's own words
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

void ExpectImage(const TempDir& dir, const std::string& name, const std::string& lineEnd)
{
    THexFile file;
    ASSERT_TRUE(file.LoadFromFile(dir.Path(name).c_str()));
    EXPECT_EQ(file.startAddress, 0x90040000);
    EXPECT_EQ(file.endAddress, 0x90065123);
    EXPECT_STREQ(file.versionText, kVersion);
    std::string text;
    for (int row = 0; row < file.lineCount; ++row)
        text += file.lines[row] + lineEnd;
    EXPECT_EQ(text, dir.Read(name));
}

}  // namespace

TEST(ToolFile, OfSrecCatLoadsRowForRow)
{
    const TempDir dir;
    const std::string command = "srec_cat " + dir.Write("firmware.bin", FirmwareWithVersion()) +
                                " -binary -offset 0x90040000 -Output " + dir.Path("firmware.hex") +
                                " -Intel ";
    ASSERT_TRUE(RunTool(command + "-Output_Block_Size=16 -Line_Termination=NewLine"));
    ExpectImage(dir, "firmware.hex", "\n");
    ASSERT_TRUE(RunTool(command + "-Output_Block_Size=32 -Line_Termination=CRLF"));
    ExpectImage(dir, "firmware.hex", "\r\n");
}

TEST(ToolFile, OfObjcopyComesBackFromItsCompressedForm)
{
    const TempDir dir;
    const std::string binary = dir.Write("flash", FirmwareWithVersion());
    const std::string hex = dir.Path("firmware.hex");
    ASSERT_TRUE(
        RunTool("objcopy -I binary -O ihex --change-addresses 0x90040000 " + binary + " " + hex));
    ExpectImage(dir, "firmware.hex", "\r\n");

    const std::string rlg = dir.Path("firmware.rlg");
    const std::string expanded = dir.Path("expanded.hex");
    EXPECT_TRUE(Compress(hex.c_str(), rlg.c_str()));
    EXPECT_TRUE(Decompress(rlg.c_str(), expanded.c_str()));
    ASSERT_TRUE(RunTool("objcopy -I ihex -O binary " + expanded + " " + dir.Path("back")));
    EXPECT_TRUE(dir.Read("back") == dir.Read("flash"));
    EXPECT_LT(dir.Read("firmware.rlg").size(), dir.Read("flash").size());
}
