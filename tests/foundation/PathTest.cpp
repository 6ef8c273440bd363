#include <string>

#include <gtest/gtest.h>

#include "Path.h"
#include "TextRows.h"

// 0x83 0x5C is one character of Shift-JIS whose second byte has the value of a backslash. 0xF0
// begins no pair in a name, 0x80 does.

TEST(Path, ChangesTheExtension)
{
    ExpectTexts({
        {"plain", ChangeFileExtSX("a.hex", ".bin"), "a.bin"},
        {"dot in a directory", ChangeFileExtSX("rel.old/img", ".bin"), "rel.bin"},
        {"no dot", ChangeFileExtSX("/x/img", ".bin"), "/x/img.bin"},
        {"dot in first place", ChangeFileExtSX(".hex", ".bin"), ".hex.bin"},
        {"longer than any buffer", ChangeFileExtSX(std::string(5000, 'x').c_str(), ".bin"),
         (std::string(5000, 'x') + ".bin").c_str()},
    });
}

TEST(Path, ExtractsExtensionNameAndDirectory)
{
    ExpectTexts({
        {"extension", ExtractFileExtSX("/x.y/a.b.hex"), ".hex"},
        {"no extension", ExtractFileExtSX("img"), ""},
        {"name", ExtractFileNameSX("/mnt/usb/a.hex"), "a.hex"},
        {"bare name", ExtractFileNameSX("a.hex"), ""},
        {"empty name", ExtractFileNameSX("/mnt/usb/"), ""},
        {"name with a pair", ExtractFileNameSX("x/\x83\x5C.hex"), "\x83\x5C.hex"},
        {"behind a pair", ExtractFileNameSX("\x83\x5C\\a"), "a"},
        {"first byte 0x80", ExtractFileNameSX("x/\x80\\a"), "\x80\\a"},
        {"first byte 0xF0", ExtractFileNameSX("x/\xF0\\a"), "a"},
        {"under the root", ExtractFileDirSX("/a.hex"), ""},
        {"trailing separator", ExtractFileDirSX("/mnt/usb\\"), "/mnt/usb"},
        {"drive keeps its colon", ExtractFileDirSX("c:a.hex"), "c:"},
        {"no directory", ExtractFileDirSX("a.hex"), "a.hex"},
        {"bare pair stays whole", ExtractFileDirSX("a\x83\x5C"), "a\x83\x5C"},
        {"empty path", ExtractFileDirSX(""), ""},
    });
}

TEST(Path, LeavesTheOutputAloneWhenThereIsNothingToGive)
{
    for (const char* path : {"", "a.d/", "a.d\\", "a.d:"}) {
        char output[16] = "untouched";
        EXPECT_FALSE(ChangeFileExtX(path, ".bin", output)) << path;
        EXPECT_FALSE(ExtractFileExtX(path, output)) << path;
        EXPECT_FALSE(ExtractFileNameX(path, output)) << path;
        EXPECT_STREQ(output, "untouched");
        EXPECT_TRUE(ExtractFileDirX(path, output));
    }
}
