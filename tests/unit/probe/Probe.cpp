// Makes the calls that its arguments name, as the product does, and prints a line for each:
// "call = result", or "call = -1 errno".

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utime.h>

namespace {

constexpr std::size_t kChunk = 100;
constexpr int kCreate = O_WRONLY | O_CREAT | O_TRUNC;
constexpr int kExclusive = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
char buffer[4096];
int opened = -1;    // by the last open, create or connect
struct stat found;  // by the last stat

// Writes a chunk, or counts the bytes up to the end. -1 with the first error.
long UseStream(const char* path, const char* mode)
{
    const int flags = *mode == 'r' ? O_RDONLY : O_RDWR | O_CREAT | O_APPEND;
    const int descriptor = open(path, flags, 0666);
    if (descriptor < 0)
        return -1;
    std::FILE* file = fdopen(descriptor, mode);
    long count = 0;
    if (*mode == 'r') {
        while (std::fgetc(file) != EOF)
            ++count;
    } else {
        count = std::fputs(std::string(kChunk, 'p').c_str(), file) < 0 ? 0 : kChunk;
        std::fflush(file);
    }
    const int error = errno;
    const bool hasFailed = std::ferror(file) != 0;
    std::fclose(file);
    errno = error;
    return hasFailed ? -1 : count;
}

long Connect(const char* path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    opened = socket(AF_UNIX, SOCK_STREAM, 0);
    return connect(opened, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

long SetTime(const char* path, time_t seconds)
{
    const utimbuf times = {seconds, seconds};
    return utime(path, &times);
}

long Select(int seconds)
{
    timeval timeout = {seconds, 0};
    return select(0, nullptr, nullptr, nullptr, &timeout);
}

long Mount(const char* target, unsigned long flags, const char* device = "/dev/sda")
{
    return mount(device, target, "vfat", flags, "iocharset=sjis,codepage=932");
}

// A call with its argument, which is a path or a number.
using Act = std::function<long(const char* path, int number)>;

const std::map<std::string, Act> kCalls = {
    {"open", [](auto path, int) { return std::min(opened = open(path, O_RDONLY), 0); }},
    {"create", [](auto path, int) { return std::min(opened = open(path, kCreate, 0666), 0); }},
    {"read", [](auto, int) { return read(opened, buffer, kChunk); }},
    {"write", [](auto, int) { return write(opened, buffer, kChunk); }},
    {"send", [](auto, int) { return send(opened, buffer, kChunk, MSG_NOSIGNAL); }},
    {"exclusive",
     [](auto path, int) { return std::min(opened = open(path, kExclusive, 0666), 0); }},
    {"truncate", [](auto, int size) { return ftruncate(opened, size); }},
    {"fsync", [](auto, int) { return fsync(opened); }},
    {"fdatasync", [](auto, int) { return fdatasync(opened); }},
    {"syncfs", [](auto, int) { return syncfs(opened); }},
    {"sync", [](auto, int) { return sync(), 0; }},
    {"lstat", [](auto path, int) { return lstat(path, &found) < 0 ? -1 : found.st_size; }},
    {"close", [](auto, int) { return close(opened); }},
    {"fread", [](auto path, int) { return UseStream(path, "r"); }},
    {"fappend", [](auto path, int) { return UseStream(path, "a+"); }},
    {"connect", [](auto path, int) { return Connect(path); }},
    {"stat", [](auto path, int) { return stat(path, &found) < 0 ? -1 : found.st_size; }},
    {"mtime", [](auto path, int) { return stat(path, &found) < 0 ? -1 : found.st_mtime; }},
    {"utime", [](auto path, int) { return SetTime(path, 1'000'000'001); }},
    {"utime-1979", [](auto path, int) { return SetTime(path, 300'000'000); }},
    {"chdir", [](auto path, int) { return chdir(path); }},
    {"unlink", [](auto path, int) { return unlink(path); }},
    {"rename", [](auto path, int) { return rename(path, "renamed"); }},
    {"rename-refused", [](auto path, int) { return rename(path, "/mnt/usb/a:b"); }},
    {"ioctl", [](auto, int request) { return ioctl(opened, 33, request); }},
    {"mount", [](auto path, int) { return Mount(path, 0xC0ED000A); }},
    {"mount-ro", [](auto path, int) { return Mount(path, 0xC0ED000B); }},
    {"mount-b", [](auto path, int) { return Mount(path, 0xC0ED000A, "/dev/sdb"); }},
    {"umount", [](auto path, int) { return umount(path); }},
    {"sleep", [](auto, int time) { return sleep(static_cast<unsigned>(time)); }},
    {"select", [](auto, int time) { return Select(time); }},
};

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        std::istringstream words(argv[i]);
        std::string name;
        std::string argument;
        words >> name >> argument;
        const int number = static_cast<int>(std::strtol(argument.c_str(), nullptr, 10));
        const long result = kCalls.at(name)(argument.c_str(), number);
        if (result < 0)
            std::printf("%s = -1 %s\n", argv[i], strerrorname_np(errno));
        else
            std::printf("%s = %ld\n", argv[i], result);
    }
    return 0;
}
