// Makes the calls that its arguments name, as the product does, and prints a line for each:
// "call = result", or "call = -1 errno".

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace {

constexpr std::size_t kChunk = 100;
char buffer[4096];
int opened = -1;    // by the last open, create or exclusive
struct stat found;  // by the last stat

long Open(const std::string& path, int flags)
{
    opened = open(path.c_str(), flags, 0666);
    return std::min(opened, 0);
}

// By a descriptor: the simulated unit has no chdir, which the product doesn't call.
long EnterDirectory(const std::string& path)
{
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY);
    const int result = fchdir(directory);
    close(directory);
    return result;
}

long SetTime(const std::string& path, time_t seconds)
{
    const utimbuf times = {seconds, seconds};
    return utime(path.c_str(), &times);
}

long Select(int seconds)
{
    timeval timeout = {seconds, 0};
    return select(0, nullptr, nullptr, nullptr, &timeout);
}

long Mount(const std::string& target, unsigned long flags, const char* device = "/dev/sda")
{
    return mount(device, target.c_str(), "vfat", flags, "iocharset=sjis,codepage=932");
}

// A call with its argument, which is a path or a number.
const std::map<std::string, std::function<long(const std::string&)>> kCalls = {
    {"open", [](auto& path) { return Open(path, O_RDONLY); }},
    {"create", [](auto& path) { return Open(path, O_WRONLY | O_CREAT | O_TRUNC); }},
    {"exclusive", [](auto& path) { return Open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW); }},
    {"read", [](auto&) { return read(opened, buffer, kChunk); }},
    {"write", [](auto&) { return write(opened, buffer, kChunk); }},
    {"truncate", [](auto& size) { return ftruncate(opened, std::stoi(size)); }},
    {"fsync", [](auto&) { return fsync(opened); }},
    {"fdatasync", [](auto&) { return fdatasync(opened); }},
    {"syncfs", [](auto&) { return syncfs(opened); }},
    {"sync", [](auto&) { return sync(), 0; }},
    {"close", [](auto&) { return close(opened); }},
    {"stat", [](auto& path) { return stat(path.c_str(), &found) < 0 ? -1 : found.st_size; }},
    {"lstat", [](auto& path) { return lstat(path.c_str(), &found) < 0 ? -1 : found.st_size; }},
    {"mtime", [](auto& path) { return stat(path.c_str(), &found) < 0 ? -1 : found.st_mtime; }},
    {"utime", [](auto& path) { return SetTime(path, 1'000'000'001); }},
    {"utime-1979", [](auto& path) { return SetTime(path, 300'000'000); }},
    {"chdir", [](auto& path) { return EnterDirectory(path); }},
    {"unlink", [](auto& path) { return unlink(path.c_str()); }},
    {"rename", [](auto& path) { return rename(path.c_str(), "renamed"); }},
    {"rename-refused", [](auto& path) { return rename(path.c_str(), "/mnt/usb/a:b"); }},
    {"mount", [](auto& path) { return Mount(path, 0xC0ED000A); }},
    {"mount-ro", [](auto& path) { return Mount(path, 0xC0ED000B); }},
    {"mount-b", [](auto& path) { return Mount(path, 0xC0ED000A, "/dev/sdb"); }},
    {"umount", [](auto& path) { return umount(path.c_str()); }},
    {"sleep", [](auto& seconds) { return sleep(std::stoi(seconds)); }},
    {"select", [](auto& seconds) { return Select(std::stoi(seconds)); }},
};

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string call = argv[i];
        const std::size_t blank = std::min(call.find(' '), call.size());
        const long result =
            kCalls.at(call.substr(0, blank))(call.substr(std::min(blank + 1, call.size())));
        std::printf("%s = %ld%s%s\n", argv[i], result, result < 0 ? " " : "",
                    result < 0 ? strerrorname_np(errno) : "");
    }
    return 0;
}
