// Parameter files on their way to a removable medium and back.

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

namespace {

constexpr char kParameterFile[] = "usr/local/lib/diag/csp_param.hex";
constexpr char kNone[] = "mnt/none";
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
#define TO_FLOPPY                                                                                  \
    UMOUNT("floppy", "0")                                                                          \
    MOUNT("floppy", "0xc0ed000a", "0") "statfs(/mnt/floppy/)\nsync()\n"
#define FROM_FLOPPY UMOUNT("floppy", "0") MOUNT("floppy", "0xc0ed000b", "0")
#define NO_MEDIUM(error) UMOUNT("floppy", "-1 " error) UMOUNT("usb", "-1 " error)

// 600 bytes, some of them in runs, and what the medium must hold for them.
const std::string kData = std::string(300, 'a') + "\xDD" + std::string(299, '\xFF');
const std::string kPacked = "\x04\x90\xDD"
                            "a\xFF\xDD"
                            "a\x2D\xDD\xDD\x01\xDD\xFF\xFF\xDD\xFF\x2C";
constexpr std::uint64_t kPackedSize = 17;
constexpr char kOld[] = "an old copy that is longer than what replaces it";

// What a row changes in the unit.
struct Medium {
    const char* point;            // where it is; null without one
    const char* removed = kNone;  // a file
    void (Unit::*limit)(std::uint64_t bytes) const = nullptr;
    std::uint64_t bytes = 0;
    void (Unit::*fail)(const std::string& error) const = nullptr;
    const char* error = "";

    void Arrange(Unit& unit) const
    {
        if (point != nullptr)
            unit.Mount(point);
        unit.Remove(removed);
        if (limit != nullptr)
            (unit.*limit)(bytes);
        if (fail != nullptr)
            (unit.*fail)(error);
    }
};

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
    Medium medium;
    const char* text;
    const char* calls;
    std::string copy;  // csp_param.rlg at the end
};
class Backup : public testing::TestWithParam<BackupRow> {};

struct RestoreRow {
    const char* name;
    Medium medium;
    const char* text;
    const char* calls;
    std::string copy;  // csp_param.rlg
    std::string data;  // of the parameter file at the end
};
class Restore : public testing::TestWithParam<RestoreRow> {};

}  // namespace

TEST_P(Backup, ReportsResultAndKeepsOldCopyUntilThereIsRoom)
{
    const BackupRow& row = GetParam();
    OpenServer server;
    server.unit.Write(kMediumFile, kOld);
    server.PutParameters(kData);
    row.medium.Arrange(server.unit);

    Copy(server, kBackup, row.text, row.calls);

    EXPECT_EQ(ToHex(server.unit.Read(kMediumFile)), ToHex(row.copy));
}

INSTANTIATE_TEST_SUITE_P(
    With, Backup,
    testing::Values(
        BackupRow{"Stick", {"usb"}, kCopied, TO_USB ROOM "sync()\n", kPacked},
        BackupRow{"Floppy", {"floppy"}, kCopied, TO_FLOPPY, kPacked},
        BackupRow{"NoOldCopy", {"usb", kMediumFile}, kCopied, TO_USB ROOM "sync()\n", kPacked},
        BackupRow{"NoMedium", {nullptr}, kNoMedium, NO_MEDIUM("EINVAL"), kOld},
        BackupRow{"MediumInUse",
                  {"usb", kNone, nullptr, 0, &Unit::UmountErrno, "EBUSY"},
                  kNoMedium,
                  NO_MEDIUM("EBUSY"),
                  kOld},
        BackupRow{"ProtectedMedium",
                  {"usb", kNone, nullptr, 0, &Unit::MountErrno, "EROFS"},
                  kError,
                  ON_USB MOUNT("usb", "0xc0ed000a", "-1 EROFS"),
                  kOld},
        BackupRow{"NoParameterFile", {"usb", kParameterFile}, kMissing, TO_USB, kOld},
        BackupRow{"ByteTooLittleRoom",
                  {"usb", kNone, &Unit::Free, kPackedSize},
                  kNoRoom,
                  TO_USB ROOM,
                  kOld},
        BackupRow{"JustEnoughRoom",
                  {"usb", kNone, &Unit::Free, kPackedSize + 1},
                  kCopied,
                  TO_USB ROOM "sync()\n",
                  kPacked},
        BackupRow{"MediumThatFillsUp",
                  {"usb", kNone, &Unit::FullAfter, kPackedSize - 1},
                  kError,
                  TO_USB ROOM,
                  kPacked.substr(0, kPackedSize - 1)},
        BackupRow{"MediumThatIsPulledOut",
                  {"usb", kNone, &Unit::PullAfter, 5},
                  kError,
                  TO_USB ROOM "medium pulled\n",
                  kPacked.substr(0, 5)}),
    [](const auto& row) { return row.param.name; });

TEST(BackupCommand, RefusesDamagedParameterFile)
{
    OpenServer server;
    server.unit.Write(kParameterFile, ":00000001FF\r\n");
    server.unit.Mount("usb");

    Copy(server, kBackup, kDamaged, TO_USB);
}

TEST_P(Restore, ReportsResultAndReplacesFileOnlyByCompleteCopy)
{
    const RestoreRow& row = GetParam();
    OpenServer server;
    server.unit.Write(kMediumFile, row.copy);
    server.PutParameters(kOld);
    row.medium.Arrange(server.unit);

    Copy(server, kRestore, row.text, row.calls);

    EXPECT_EQ(server.unit.Read(kParameterFile), HexText(row.data, 32, "\r\n"));
}

INSTANTIATE_TEST_SUITE_P(
    With, Restore,
    testing::Values(
        RestoreRow{"Stick", {"usb"}, kCopied, FROM_USB, kPacked, kData},
        RestoreRow{"Floppy", {"floppy"}, kCopied, FROM_FLOPPY, kPacked, kData},
        RestoreRow{"NoMedium", {nullptr}, kNoMedium, NO_MEDIUM("EINVAL"), kPacked, kOld},
        RestoreRow{"UnreadableMedium",
                   {"usb", kNone, nullptr, 0, &Unit::MountErrno, "EIO"},
                   kError,
                   ON_USB MOUNT("usb", "0xc0ed000b", "-1 EIO"),
                   kPacked,
                   kOld},
        RestoreRow{"NoFile", {"usb", kMediumFile}, kMissing, FROM_USB, "", kOld},
        RestoreRow{"FileCutInAnItem", {"usb"}, kError, FROM_USB, kPacked + "\xDD", kOld},
        RestoreRow{"EmptyFile", {"usb"}, kError, FROM_USB, "", kOld},
        RestoreRow{"MediumThatIsPulledOut",
                   {"usb", kNone, &Unit::PullAfter, 5},
                   kError,
                   FROM_USB "medium pulled\n",
                   kPacked,
                   kOld}),
    [](const auto& row) { return row.param.name; });
