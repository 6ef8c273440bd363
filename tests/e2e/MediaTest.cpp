// Parameter files copied to a removable medium and back.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kCopy[] = "medium/csp_param.rlg";

constexpr char kCopied[] = "Copy Success.\n";
constexpr char kMissing[] = "Parameter file is not exists.\n";
constexpr char kError[] = "Copy error.\n";

// The journal's lines after the mount.
constexpr char kRoom[] = "statfs(/mnt/usb/) = 0\n";
constexpr char kWritten[] = "statfs(/mnt/usb/) = 0\nsync()\n";

// 600 bytes, some of them in runs, and the 17 bytes of their compressed form.
const std::string kData = std::string(300, 'a') + "\xDD" + std::string(299, '\xFF');
const std::string kPacked = Bytes("04 90 DD 61 FF DD 61 2D DD DD 01 DD FF FF DD FF 2C");
constexpr char kOld[] = "an old copy that is longer than what replaces it";

// The journal's lines of the search for a medium and of its mount. Without a point there is none.
std::string MountLines(const std::string& point, bool isBackup, const std::string& result)
{
    const std::string away = "umount(/mnt/floppy) = -1 EINVAL\numount(/mnt/usb) = ";
    if (point.empty())
        return away + "-1 EINVAL\n";
    return (point == "usb" ? away + "0\n" : "umount(/mnt/floppy) = 0\n") + "mount(/dev/sda, /mnt/" +
           point + "/, vfat, 0xc0ed000" + (isBackup ? "a" : "b") +
           ", iocharset=sjis,codepage=932) = " + result + "\n";
}

}  // namespace

TEST(MediumCopy, ReportsResultAndReplacesOnlyByCompleteFile)
{
    const struct {
        const char* command;
        const char* point;  // of the medium; empty without one
        const char* file;   // the unusual file or limit in the unit
        std::string bytes;  // empty: the file is missing
        const char* text;
        const char* calls;
        std::string result;  // the medium's file after a backup, the unit's data after a restore
        const char* mounted = "0";
    } rows[] = {
        {kBackup, "usb", kCopy, "", kCopied, kWritten, kPacked},
        {kBackup, "usb", "none", "", kCopied, kWritten, kPacked},
        {kBackup, "", "none", "", "Floppy in not inserted.\n", "", kOld},
        {kBackup, "usb", "sim/mount-errno", "EROFS\n", kError, "", kOld, "-1 EROFS"},
        {kBackup, "usb", kParameterFile, "", kMissing, "", kOld},
        {kBackup, "usb", kParameterFile, ":00000001FF\r\n", "Binary file error.\n", "", kOld},
        {kBackup, "usb", "sim/free", "17\n", "Free Disk space error.\n", kRoom, kOld},
        {kBackup, "usb", "sim/full-after", "16\n", kError, kRoom, kPacked.substr(0, 16)},
        {kRestore, "usb", "none", "", kCopied, "", kData},
        {kRestore, "floppy", "none", "", kCopied, "", kData},
        {kRestore, "usb", kCopy, "", kMissing, "", kOld},
        {kRestore, "usb", kCopy, kPacked + "\xDD", kError, "", kOld},
        {kRestore, "usb", "sim/pull-after", "5\n", kError, "medium pulled\n", kOld},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.command << row.point << row.file << row.bytes);
        const bool isBackup = row.command == kBackup;
        Scene scene;
        scene.OpenWithPeers();
        scene.Write(kCopy, isBackup ? kOld : kPacked);
        scene.Write(kParameterFile, HexText(isBackup ? kData : kOld, 32, "\r\n"));
        if (*row.point != '\0')
            scene.Mount(row.point);
        if (row.bytes.empty())
            scene.Remove(row.file);
        else
            scene.Write(row.file, row.bytes);
        const std::size_t called = scene.Journal().size();
        const std::string texts = std::string("Copying CSP Parameters...") +
                                  (isBackup ? "HD -> FD\n" : "FD -> HD\n") + row.text;

        EXPECT_EQ(scene.Ask(row.command), texts);

        EXPECT_EQ(scene.TakeLog(), texts);
        EXPECT_EQ(scene.Journal().substr(called),
                  MountLines(row.point, isBackup, row.mounted) + row.calls);
        EXPECT_EQ(scene.Read(isBackup ? kCopy : kParameterFile),
                  isBackup ? row.result : HexText(row.result, 32, "\r\n"));
    }
}
