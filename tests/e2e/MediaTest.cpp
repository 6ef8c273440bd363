// Parameter files copied to a removable medium and back.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kCopy[] = "medium/csp_param.rlg";

constexpr char kCopied[] = "Copy Success.\n";
constexpr char kMissing[] = "Parameter file is not exists.\n";
constexpr char kDamaged[] = "Binary file error.\n";
constexpr char kNoRoom[] = "Free Disk space error.\n";
constexpr char kError[] = "Copy error.\n";
constexpr char kNoMedium[] = "Floppy in not inserted.\n";

// The journal's lines.
#define MOUNT(point, flags, result)                                                                \
    "mount(/dev/sda, /mnt/" point "/, vfat, " flags ", iocharset=sjis,codepage=932) = " result "\n"
#define AT_USB "umount(/mnt/floppy) = -1 EINVAL\numount(/mnt/usb) = 0\n"
#define TO_USB AT_USB MOUNT("usb", "0xc0ed000a", "0")
#define FROM_USB AT_USB MOUNT("usb", "0xc0ed000b", "0")
#define AT_FLOPPY "umount(/mnt/floppy) = 0\n"
#define TO_FLOPPY AT_FLOPPY MOUNT("floppy", "0xc0ed000a", "0")
#define FROM_FLOPPY AT_FLOPPY MOUNT("floppy", "0xc0ed000b", "0")
#define NOWHERE "umount(/mnt/floppy) = -1 EINVAL\numount(/mnt/usb) = -1 EINVAL\n"
#define ROOM_ON(point) "statfs(/mnt/" point "/)\n"

// 600 bytes, some of them in runs, and the 17 bytes of their compressed form.
const std::string kData = std::string(300, 'a') + "\xDD" + std::string(299, '\xFF');
const std::string kPacked = "\x04\x90\xDD"
                            "a\xFF\xDD"
                            "a\x2D\xDD\xDD\x01\xDD\xFF\xFF\xDD\xFF\x2C";
constexpr char kOld[] = "an old copy that is longer than what replaces it";

struct CopyRow {
    const char* name;
    const char* command;
    const char* point;  // of the medium; empty without one
    const char* file;   // the unusual file or limit in the unit
    std::string bytes;  // empty: the file is missing
    const char* text;
    const char* calls;
    std::string result;  // the medium's file after a backup, the unit's data after a restore
};
class MediumCopy : public testing::TestWithParam<CopyRow> {};

}  // namespace

TEST_P(MediumCopy, ReportsResultAndReplacesOnlyByCompleteFile)
{
    const CopyRow& row = GetParam();
    const bool isBackup = row.command == kBackup;
    ServerWithPeers scene;
    scene.Open();
    scene.unit.Write(kCopy, isBackup ? kOld : kPacked);
    scene.unit.Write(kParameterFile, HexText(isBackup ? kData : kOld, 32, "\r\n"));
    if (*row.point != '\0')
        scene.unit.Mount(row.point);
    if (row.bytes.empty())
        scene.unit.Remove(row.file);
    else
        scene.unit.Write(row.file, row.bytes);
    const std::size_t called = scene.unit.Journal().size();
    const std::string texts =
        std::string("Copying CSP Parameters...") + (isBackup ? "HD -> FD\n" : "FD -> HD\n");

    EXPECT_EQ(scene.Ask(row.command), texts + row.text);

    EXPECT_EQ(scene.TakeLog(), texts + row.text);
    EXPECT_EQ(scene.unit.Journal().substr(called), row.calls);
    if (isBackup)
        EXPECT_EQ(ToHex(scene.unit.Read(kCopy)), ToHex(row.result));
    else
        EXPECT_EQ(scene.unit.Read(kParameterFile), HexText(row.result, 32, "\r\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Of, MediumCopy,
    testing::Values(
        CopyRow{"BackupToStick", kBackup, "usb", "none", "", kCopied,
                TO_USB ROOM_ON("usb") "sync()\n", kPacked},
        CopyRow{"BackupToFloppyWithoutOldCopy", kBackup, "floppy", kCopy, "", kCopied,
                TO_FLOPPY ROOM_ON("floppy") "sync()\n", kPacked},
        CopyRow{"BackupToNoMedium", kBackup, "", "none", "", kNoMedium, NOWHERE, kOld},
        CopyRow{"BackupToProtectedMedium", kBackup, "usb", "sim/mount-errno", "EROFS\n", kError,
                AT_USB MOUNT("usb", "0xc0ed000a", "-1 EROFS"), kOld},
        CopyRow{"BackupOfMissingFile", kBackup, "usb", kParameterFile, "", kMissing, TO_USB, kOld},
        CopyRow{"BackupOfDamagedFile", kBackup, "usb", kParameterFile, ":00000001FF\r\n", kDamaged,
                TO_USB, kOld},
        CopyRow{"BackupWithByteTooLittleRoom", kBackup, "usb", "sim/free", "17\n", kNoRoom,
                TO_USB ROOM_ON("usb"), kOld},
        CopyRow{"BackupToMediumThatFillsUp", kBackup, "usb", "sim/full-after", "16\n", kError,
                TO_USB ROOM_ON("usb"), kPacked.substr(0, 16)},
        CopyRow{"RestoreFromStick", kRestore, "usb", "none", "", kCopied, FROM_USB, kData},
        CopyRow{"RestoreFromFloppy", kRestore, "floppy", "none", "", kCopied, FROM_FLOPPY, kData},
        CopyRow{"RestoreOfMissingFile", kRestore, "usb", kCopy, "", kMissing, FROM_USB, kOld},
        CopyRow{"RestoreOfCutFile", kRestore, "usb", kCopy, kPacked + "\xDD", kError, FROM_USB,
                kOld},
        CopyRow{"RestoreFromMediumThatIsPulledOut", kRestore, "usb", "sim/pull-after", "5\n",
                kError, FROM_USB "medium pulled\n", kOld}),
    [](const auto& row) { return row.param.name; });
