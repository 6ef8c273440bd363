#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// The path of everything of the unit that the program opens, each written here and nowhere else.
// A name that is derived from one of these is in the source that derives it.

// Where the logs are, and more that the program keeps.
inline constexpr const char* kLogDirectory = "/usr/local/lib/diag";

// What the server has done.
inline constexpr const char* kServerLog = "/usr/local/lib/diag/diagserver.log";

// The most bytes of a log with --strict.
inline constexpr std::int64_t kMostOfLog = 0x200000;

// What the stand-alone updates have done.
inline constexpr const char* kUpdateLog = "/usr/local/lib/diag/cspupdate.log";

// Locked by the one run with --strict, whose process id is in it.
inline constexpr const char* kLockFile = "/usr/local/lib/diag/diag_server.lock";

// The CSP's parameters, as the controller has them read, copied and written.
inline constexpr const char* kParameterFile = "/usr/local/lib/diag/csp_param.hex";

// The parameters on their way to a medium.
inline constexpr const char* kCompressedParameterFile = "/usr/local/lib/diag/csp_param.rlg";

// The parameters that the read-back at the start saves, in the working directory.
inline constexpr const char* kUnnamedParameterFile = "csp_param.hex";

// A compressed firmware file is expanded to here.
inline constexpr const char* kExpandedFirmware = "/tmp/csp_prog.hex";

// Accepts every byte and keeps none.
inline constexpr const char* kNowhere = "/dev/null";

// The address of the MIDI Patcher, through which everything reaches the piano.
inline constexpr const char* kMidiPatcherSocket = "/home/i2c_server_sock";

// The address of the RC Server, which shows message boxes.
inline constexpr const char* kRCServerSocket = "/tmp/rcseq_socket";

// The character device that switches the piano side off and on.
inline constexpr const char* kPianoPowerDevice = "/dev/PciDsp";

// Its first line is the unit's language, "ja" for Japanese.
inline constexpr const char* kLanguageFile = "/etc/KVT-lang";

// Its first line is the version of the unit's software.
inline constexpr const char* kReleaseFile = "/etc/KVT-release";

// The block device of a medium for parameters.
inline constexpr const char* kMediumDevice = "/dev/sda";

// The kernel's list of what is mounted where.
inline constexpr const char* kMounts = "/proc/mounts";

// Where that medium is mounted, if it is a floppy disk.
inline constexpr const char* kFloppy = "/mnt/floppy";

// Where it is mounted, if it is a USB stick.
inline constexpr const char* kUsb = "/mnt/usb";

// Where a CD is mounted.
inline constexpr const char* kCdrom = "/mnt/cdrom";

// The parameters' name on a medium.
inline constexpr const char* kMediumParameterFile = "csp_param.rlg";

// The names of the work files from which --strict makes that file and its checksum, such as every
// FAT can store without a long name.
inline constexpr const char* kMediumParameterWork = "CSP_PARA.NEW";
inline constexpr const char* kMediumSumWork = "CSP_SUM.NEW";

// Firmware on a USB stick, plain.
inline constexpr const char* kUsbFirmware = "/mnt/usb/csp_prog.hex";

// Firmware on a USB stick, compressed.
inline constexpr const char* kUsbCompressedFirmware = "/mnt/usb/csp_prog.rlg";

// Firmware on a CD, plain.
inline constexpr const char* kCdFirmware = "/mnt/cdrom/csp_prog.hex";

// Firmware on a CD, compressed.
inline constexpr const char* kCdCompressedFirmware = "/mnt/cdrom/csp_prog.rlg";

// Firmware on a floppy disk, always compressed.
inline constexpr const char* kFloppyCompressedFirmware = "/mnt/floppy/csp_prog.rlg";

// A directory is written again in the paths of its files, since a constant can't be joined from
// two.
constexpr bool IsBelow(std::string_view path, std::string_view directory)
{
    return path.substr(0, directory.size()) == directory && path[directory.size()] == '/';
}
static_assert(IsBelow(kServerLog, kLogDirectory) && IsBelow(kUpdateLog, kLogDirectory) &&
              IsBelow(kLockFile, kLogDirectory) && IsBelow(kParameterFile, kLogDirectory) &&
              IsBelow(kCompressedParameterFile, kLogDirectory));
static_assert(IsBelow(kUsbFirmware, kUsb) && IsBelow(kUsbCompressedFirmware, kUsb) &&
              IsBelow(kCdFirmware, kCdrom) && IsBelow(kCdCompressedFirmware, kCdrom) &&
              IsBelow(kFloppyCompressedFirmware, kFloppy));

// Room for a path that comes from outside, its NUL included. A longer one isn't cut, since a cut
// path names another file.
inline constexpr std::size_t kPathSize = 256;
