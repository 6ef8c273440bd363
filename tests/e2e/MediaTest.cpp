// Parameter files on their way to a removable medium and back.

#include <filesystem>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kParameterFile[] = "usr/local/lib/diag/csp_param.hex";
constexpr char kMediumFile[] = "medium/csp_param.rlg";

constexpr char kCopied[] = "Copy Success.\n";
constexpr char kMissing[] = "Parameter file is not exists.\n";
constexpr char kDamaged[] = "Binary file error.\n";
constexpr char kNoRoom[] = "Free Disk space error.\n";
constexpr char kError[] = "Copy error.\n";
constexpr char kNoMedium[] = "Floppy in not inserted.\n";

// The journal's lines.
#define UMOUNT(point, result) "umount(/mnt/" point ") = " result "\n"
#define MOUNT(point, flags, result)                                                                \
    "mount(/dev/sda, /mnt/" point "/, vfat, " flags ", iocharset=sjis,codepage=932) = " result "\n"
#define ON_USB UMOUNT("floppy", "-1 EINVAL") UMOUNT("usb", "0")
#define TO_USB ON_USB MOUNT("usb", "0xc0ed000a", "0")
#define FROM_USB ON_USB MOUNT("usb", "0xc0ed000b", "0")
#define ROOM "statfs(/mnt/usb/)\n"

// 600 bytes, some of them in runs, and what the medium must hold for them.
const std::string kData = std::string(300, 'a') + "\xDD" + std::string(299, '\xFF');
const std::string kPacked = "\x04\x90\xDD"
                            "a\xFF\xDD"
                            "a\x2D\xDD\xDD\x01\xDD\xFF\xFF\xDD\xFF\x2C";
constexpr std::uint64_t kPackedSize = 17;
constexpr char kOld[] = "an old copy that is longer than what replaces it";

using Arrange = void (*)(Unit& unit);

void Stick(Unit& unit)
{
    unit.Mount("usb");
}

// Asks for the copy and looks at the texts, the log and the calls for the medium.
void Copy(OpenServer& server, const char* command, const std::string& text,
          const std::string& calls)
{
    const std::size_t called = server.unit.Journal().size();
    const std::string way = command == std::string(kBackup) ? "HD -> FD\n" : "FD -> HD\n";
    const std::string texts = "Copying CSP Parameters..." + way + text;

    EXPECT_EQ(server.Ask(command, text), texts);

    EXPECT_TRUE(server.HasLogged("\n" + texts));
    EXPECT_EQ(server.unit.Journal().substr(called), calls);
}

struct BackupRow {
    const char* name;
    Arrange arrange;
    const char* text;
    const char* calls;
    std::string medium;  // what csp_param.rlg holds at the end
};
class Backup : public testing::TestWithParam<BackupRow> {};

struct RestoreRow {
    const char* name;
    Arrange arrange;
    const char* text;
    const char* calls;
    std::string medium;  // what csp_param.rlg holds
    std::string data;    // what the parameter file holds at the end
};
class Restore : public testing::TestWithParam<RestoreRow> {};

}  // namespace

TEST_P(Backup, TellsItsResultAndLeavesTheOldCopyUntilThereIsRoom)
{
    const BackupRow& row = GetParam();
    OpenServer server;
    server.unit.Write(kMediumFile, kOld);
    server.PutParameters(kData);
    row.arrange(server.unit);

    Copy(server, kBackup, row.text, row.calls);

    EXPECT_EQ(ToHex(server.unit.Read(kMediumFile)), ToHex(row.medium));
}

INSTANTIATE_TEST_SUITE_P(
    With, Backup,
    testing::Values(BackupRow{"AStick", Stick, kCopied, TO_USB ROOM "sync()\n", kPacked},
                    BackupRow{"AFloppy", [](Unit& unit) { unit.Mount("floppy"); }, kCopied,
                              UMOUNT("floppy", "0") MOUNT("floppy", "0xc0ed000a",
                                                          "0") "statfs(/mnt/floppy/)\nsync()\n",
                              kPacked},
                    BackupRow{"Both",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.Mount("floppy");
                              },
                              kCopied,
                              UMOUNT("floppy", "0") MOUNT("floppy", "0xc0ed000a",
                                                          "0") "statfs(/mnt/floppy/)\nsync()\n",
                              kPacked},
                    BackupRow{"NoOldCopy",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.Remove(kMediumFile);
                              },
                              kCopied, TO_USB ROOM "sync()\n", kPacked},
                    BackupRow{"NoMedium", [](Unit&) {}, kNoMedium,
                              UMOUNT("floppy", "-1 EINVAL") UMOUNT("usb", "-1 EINVAL"), kOld},
                    BackupRow{"AMediumInUse",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.UmountErrno("EBUSY");
                              },
                              kNoMedium, UMOUNT("floppy", "-1 EBUSY") UMOUNT("usb", "-1 EBUSY"),
                              kOld},
                    BackupRow{"AProtectedMedium",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.MountErrno("EROFS");
                              },
                              kError, ON_USB MOUNT("usb", "0xc0ed000a", "-1 EROFS"), kOld},
                    BackupRow{"NoParameterFile",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.Remove(kParameterFile);
                              },
                              kMissing, TO_USB, kOld},
                    BackupRow{"ADamagedFile",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.Write(kParameterFile, ":00000001FF\r\n");
                              },
                              kDamaged, TO_USB, kOld},
                    BackupRow{"AnEmptyFile",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.Write(kParameterFile, "");
                              },
                              kDamaged, TO_USB, kOld},
                    BackupRow{"AByteTooLittleRoom",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.Free(kPackedSize);
                              },
                              kNoRoom, TO_USB ROOM, kOld},
                    BackupRow{"JustEnoughRoom",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.Free(kPackedSize + 1);
                              },
                              kCopied, TO_USB ROOM "sync()\n", kPacked},
                    BackupRow{"AMediumThatFillsUp",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.FullAfter(kPackedSize - 1);
                              },
                              kError, TO_USB ROOM, kPacked.substr(0, kPackedSize - 1)},
                    BackupRow{"AMediumThatIsPulledOut",
                              [](Unit& unit) {
                                  unit.Mount("usb");
                                  unit.PullAfter(5);
                              },
                              kError, TO_USB ROOM "medium pulled\n", kPacked.substr(0, 5)}),
    [](const auto& row) { return row.param.name; });

TEST_P(Restore, TellsItsResultAndTouchesTheFileOnlyWithAWholeCopy)
{
    const RestoreRow& row = GetParam();
    OpenServer server;
    server.unit.Write(kMediumFile, row.medium);
    server.PutParameters(kOld);
    row.arrange(server.unit);

    Copy(server, kRestore, row.text, row.calls);

    EXPECT_EQ(server.unit.Read(kParameterFile), HexText(row.data, 32, "\r\n"));
}

INSTANTIATE_TEST_SUITE_P(
    With, Restore,
    testing::Values(
        RestoreRow{"AStick", Stick, kCopied, FROM_USB, kPacked, kData},
        RestoreRow{"AFloppy", [](Unit& unit) { unit.Mount("floppy"); }, kCopied,
                   UMOUNT("floppy", "0") MOUNT("floppy", "0xc0ed000b", "0"), kPacked, kData},
        RestoreRow{"NoMedium", [](Unit&) {}, kNoMedium,
                   UMOUNT("floppy", "-1 EINVAL") UMOUNT("usb", "-1 EINVAL"), kPacked, kOld},
        RestoreRow{"AnUnreadableMedium",
                   [](Unit& unit) {
                       unit.Mount("usb");
                       unit.MountErrno("EIO");
                   },
                   kError, ON_USB MOUNT("usb", "0xc0ed000b", "-1 EIO"), kPacked, kOld},
        RestoreRow{"NoFile",
                   [](Unit& unit) {
                       unit.Mount("usb");
                       unit.Remove(kMediumFile);
                   },
                   kMissing, FROM_USB, "", kOld},
        RestoreRow{"AFileCutInAnItem", Stick, kError, FROM_USB, kPacked + "\xDD", kOld},
        RestoreRow{"AFileCutBetweenItems", Stick, kCopied, FROM_USB, kPacked.substr(0, 5),
                   std::string(255, 'a')},
        RestoreRow{"AnAddressAlone", Stick, kCopied, FROM_USB, "\x04\x90", ""},
        RestoreRow{"AByte", Stick, kError, FROM_USB, "\x04", kOld},
        RestoreRow{"AnEmptyFile", Stick, kError, FROM_USB, "", kOld},
        RestoreRow{"AHugeFile",
                   [](Unit& unit) {
                       unit.Mount("usb");
                       std::filesystem::resize_file(unit.Path(kMediumFile), 3000000000U);
                   },
                   kError, FROM_USB, kPacked, kOld},
        RestoreRow{"AMediumThatIsPulledOut",
                   [](Unit& unit) {
                       unit.Mount("usb");
                       unit.PullAfter(5);
                   },
                   kError, FROM_USB "medium pulled\n", kPacked, kOld}),
    [](const auto& row) { return row.param.name; });

TEST(Media, StayMountedFromOneCopyToTheNext)
{
    OpenServer server;
    server.PutParameters(kData);
    Stick(server.unit);

    for (int i = 0; i < 2; ++i) {
        Copy(server, kBackup, kCopied, TO_USB ROOM "sync()\n");
        Copy(server, kRestore, kCopied, FROM_USB);
        Copy(server, kRestore, kCopied, FROM_USB);
    }
    server.unit.Remove(kMediumFile);
    Copy(server, kBackup, kCopied, TO_USB ROOM "sync()\n");

    EXPECT_EQ(server.unit.Read(kParameterFile), HexText(kData, 32, "\r\n"));
    EXPECT_EQ(server.unit.Read(kMediumFile), kPacked);
    EXPECT_TRUE(server.unit.IsMounted("usb"));
}

TEST(Media, BringTheParametersOfOneUnitToAnother)
{
    const TempDir files;
    const std::string flash = Firmware(kParameterSize);
    OpenServer first({"--load", files.Write("flash", flash) + "@90040000"});
    first.SetFaults("--join");
    first.Ask(kReadParameters, "CSP Read Success.\n");
    EXPECT_TRUE(EndedClean(first.unit, *first.server));
    first.Open();
    first.unit.Mount("usb");
    first.Ask(kBackup, kCopied);

    OpenServer second;
    second.unit.Write(kMediumFile, first.unit.Read(kMediumFile));
    second.unit.Mount("floppy");
    second.Ask(kRestore, kCopied);
    second.Ask(kFindParameters, "CSP Parameter : ");
    EXPECT_NE(second.AskAndReboot(kUpdateParameters).find("CSP Update Success.\n"),
              std::string::npos);

    EXPECT_TRUE(second.HasLogged("Start CSP Parameter Update.\nCSP Update Success.\n"));
    EXPECT_TRUE(second.unit.Flash(kImageStart, kParameterSize) == flash);
}
