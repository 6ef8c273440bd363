// The loops of both modes with peers that send anything at any time. Each wait of the program takes
// an event from the input: silence, bytes from a peer, a new connection or a lost one. Waits cost
// no time, and the one at the end of the input ends the run.

#include <cstdio>
#include <cstring>
#include <utility>

#include <sys/mount.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "FuzzInput.h"
#include "TDiagServer.h"
#include "UnitPaths.h"

namespace {

struct EndOfInput {};

std::string feed;
// The peers' ends of the links; a byte at the port is a controller that connects.
enum Peer { Piano, Controller, RcServer, Port, Peers };
int ends[Peers] = {-1, -1, -1, -1};

void HangUp(int& end)
{
    close(std::exchange(end, -1));
}

// Returns the program's end of a new link.
int Link(int& end)
{
    HangUp(end);
    int pair[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0);
    end = pair[1];
    return pair[0];
}

int LinkAt(int descriptor, int& end)
{
    const UniqueFd made(Link(end));
    return dup2(made.Get(), descriptor) == descriptor ? 0 : -1;
}

void Send(int end, const std::string& bytes)
{
    send(end, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

// A console line as the piano sends it.
std::string Frames(std::string line)
{
    std::string frames;
    while (!line.empty()) {
        const std::string data = TakeText(line, 5);
        frames += std::string("\xE2\xE1\x06") + static_cast<char>(0x30U | data.size()) + data +
                  std::string(5 - data.size(), '\0');
    }
    return frames + std::string("\xE2\xE1\x06\x37\0\0\0\0\0\xFE\xFF", 11);
}

void TakeEvent()
{
    if (feed.empty())
        throw EndOfInput();
    switch (TakeByte(feed) % 8) {
    case 1: Send(ends[Piano], Frames(TakeLine(feed))); break;
    case 2: Send(ends[Piano], TakeText(feed, TakeByte(feed))); break;
    case 3: Send(ends[Controller], TakeText(feed, TakeByte(feed))); break;
    case 4: Send(ends[Port], "."); break;
    case 5: HangUp(ends[Piano]); break;
    case 6: HangUp(ends[Controller]); break;
    default: break;  // silence
    }
}

// Discards the program's output, and prevents files with relative paths.
const bool isQuiet = std::freopen("/dev/null", "w", stdout) != nullptr && chdir("/proc/self") == 0;

const MemoryFile image(":02000004900466\r\n:041FFC0001020304D7\r\n:043FFC0001020304B7\r\n"
                       ":0404000056312E303216\r\n:00000001FF\r\n");

}  // namespace

extern "C" {

int connect(int descriptor, const sockaddr* address, socklen_t)
{
    const bool toPiano = std::strcmp(address->sa_data, kMidiPatcherSocket) == 0;
    return LinkAt(descriptor, ends[toPiano ? Piano : RcServer]);
}

int listen(int descriptor, int) noexcept
{
    return LinkAt(descriptor, ends[Port]);
}

int accept(int descriptor, sockaddr*, socklen_t*)
{
    char call = 0;
    Require(read(descriptor, &call, 1) == 1);
    return Link(ends[Controller]);
}

int select(int count, fd_set* readable, fd_set*, fd_set*, timeval*)
{
    char bytes[4096];
    for (const int end : ends) {
        while (recv(end, bytes, sizeof(bytes), MSG_DONTWAIT) > 0)
            continue;
    }
    TakeEvent();
    const timespec noTime{};
    return pselect(count, readable, nullptr, nullptr, &noTime, nullptr);
}

int usleep(useconds_t)
{
    return 0;
}

unsigned sleep(unsigned)
{
    return 0;
}

int mount(const char*, const char*, const char*, unsigned long, const void*) noexcept
{
    return -1;
}

int umount(const char*) noexcept
{
    return -1;
}

int LLVMFuzzerTestOneInput(const char* data, std::size_t size)
{
    feed.assign(data, size);
    try {
        if (TakeByte(feed) % 2 == 0) {
            TDiagServer server;
            Require(server.Initialize(0, TMidiCom::kPiano) == 0);
            server.Run();
        } else {
            TUpdater updater;
            Require(updater.Initialize(false, 0, image.Path(), TMidiCom::kPiano) == 0);
            updater.Run();
        }
    } catch (const EndOfInput&) {
        // All events have been used.
    }
    for (int& end : ends)
        HangUp(end);
    return 0;
}

}  // extern "C"
