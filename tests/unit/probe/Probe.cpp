// Makes the calls that its arguments name, as the product does, and prints a line for each:
// "call result", or "call -1 errno". Built in several ways, it calls libc by other names.

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utime.h>

namespace {

constexpr unsigned long kReadOnlyMount = 0xC0ED000B;
constexpr unsigned long kMount = 0xC0ED000A;
constexpr std::size_t kChunk = 100;

char buffer[4096];
int opened = -1;  // what the last open, socket or connect gave

// A value that the compiler can't see through, which makes it pick the checked forms.
template <typename Value>
Value Hidden(Value value)
{
    static volatile Value held;
    held = value;
    return held;
}

long Number(const char* text)
{
    constexpr int kDecimal = 10;
    return std::strtol(text, nullptr, kDecimal);
}

long Open(const char* path, int flags)
{
    opened = open(path, Hidden(flags));
    return opened < 0 ? -1 : 0;
}

long Create(const char* path)
{
    opened = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    return opened < 0 ? -1 : 0;
}

long Stream(const char* path, const char* mode)
{
    std::FILE* file = std::fopen(path, mode);
    if (file == nullptr)
        return -1;
    std::fclose(file);
    return 0;
}

// Writes a chunk through a stream. -1 with the first error.
long Print(const char* path, const char* mode)
{
    std::FILE* file = std::fopen(path, mode);
    if (file == nullptr)
        return -1;
    const std::string chunk(kChunk, 'p');
    const bool isPut = std::fputs(chunk.c_str(), file) >= 0;
    const bool isOut = std::fflush(file) == 0;
    const int error = errno;
    std::fclose(file);
    errno = error;
    return isPut && isOut ? 0 : -1;
}

// The bytes that a stream gives up to its end. -1 when that is an error's.
long Scan(const char* path)
{
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr)
        return -1;
    long count = 0;
    while (std::fgetc(file) != EOF)
        ++count;
    const int error = errno;
    const bool isGood = std::ferror(file) == 0;
    std::fclose(file);
    errno = error;
    return isGood ? count : -1;
}

long Size(const char* path)
{
    struct stat found = {};
    return stat(path, &found) < 0 ? -1 : static_cast<long>(found.st_size);
}

long Free(const char* path)
{
    struct statfs found = {};
    return statfs(path, &found) < 0
               ? -1
               : static_cast<long>(found.f_bavail) * static_cast<long>(found.f_bsize);
}

long Connect(const char* path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    opened = socket(AF_UNIX, SOCK_STREAM, 0);
    return connect(opened, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

long Select(long seconds)
{
    timeval timeout = {};
    timeout.tv_sec = static_cast<decltype(timeout.tv_sec)>(seconds);
    return select(0, nullptr, nullptr, nullptr, &timeout);
}

long Sleep(const char* seconds)
{
    return static_cast<long>(sleep(static_cast<unsigned>(Number(seconds))));
}

long Nanosleep(long seconds)
{
    timespec time = {};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(seconds);
    return nanosleep(&time, nullptr);
}

long Mount(const char* target, unsigned long flags)
{
    return mount("/dev/sda", target, "vfat", flags, "iocharset=sjis,codepage=932");
}

long Sync()
{
    sync();
    return 0;
}

struct Command {
    const char* name;
    long (*act)(const char* argument);
};

const Command kCommands[] = {
    {"open", [](const char* path) { return Open(path, O_RDONLY); }},
    {"create", Create},
    {"device", [](const char* path) { return Open(path, O_RDWR); }},
    {"fopen", [](const char* path) { return Stream(path, "r"); }},
    {"fcreate", [](const char* path) { return Stream(path, "w"); }},
    {"fwrite", [](const char* path) { return Print(path, "wt"); }},
    {"fappend", [](const char* path) { return Print(path, "a+t"); }},
    {"fread", Scan},
    {"read", [](const char*) { return long{read(opened, buffer, Hidden(kChunk))}; }},
    {"write", [](const char*) { return long{write(opened, buffer, kChunk)}; }},
    {"send", [](const char*) { return long{send(opened, buffer, kChunk, MSG_NOSIGNAL)}; }},
    {"close", [](const char*) { return long{close(opened)}; }},
    {"stat", Size},
    {"statfs", Free},
    {"access", [](const char* path) { return long{access(path, W_OK)}; }},
    {"unlink", [](const char* path) { return long{unlink(path)}; }},
    {"rename", [](const char* path) { return long{rename(path, "renamed")}; }},
    {"utime", [](const char* path) { return long{utime(path, nullptr)}; }},
    {"connect", Connect},
    {"ioctl", [](const char* value) { return long{ioctl(opened, 33, Number(value))}; }},
    {"mount", [](const char* path) { return Mount(path, kMount); }},
    {"mount-ro", [](const char* path) { return Mount(path, kReadOnlyMount); }},
    {"umount", [](const char* path) { return long{umount(path)}; }},
    {"sync", [](const char*) { return Sync(); }},
    {"sleep", Sleep},
    {"usleep",
     [](const char* time) { return long{usleep(static_cast<useconds_t>(Number(time)))}; }},
    {"nanosleep", [](const char* time) { return Nanosleep(Number(time)); }},
    {"select", [](const char* time) { return Select(Number(time)); }},
};

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        char* argument = std::strchr(argv[i], ' ');
        if (argument != nullptr)
            *argument++ = '\0';
        for (const Command& command : kCommands) {
            if (std::strcmp(command.name, argv[i]) != 0)
                continue;
            const long result = command.act(argument);
            if (result < 0)
                std::printf("%s -1 %s\n", argv[i], strerrorname_np(errno));
            else
                std::printf("%s %ld\n", argv[i], result);
        }
    }
    return 0;
}
