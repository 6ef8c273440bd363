// The loops of both modes with peers that send anything at any time. Each wait of the program takes
// an event from the input: silence, bytes from a peer, a new connection or a lost one. It costs no
// time, and the wait at the end of the input ends the run.

#include <cstdio>
#include <cstring>

#include <sys/mount.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include "FuzzInput.h"
#include "TDiagServer.h"

namespace {

struct EndOfInput {};

Feed feed("");
// The peers' ends of the links; a byte at the port is a controller that wants to be accepted.
enum Peer { Piano, Controller, RcServer, Port, Peers };
int ends[Peers] = {-1, -1, -1, -1};

void HangUp(int& end)
{
    if (end >= 0)
        close(end);
    end = -1;
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
    const int made = Link(end);
    Require(dup2(made, descriptor) == descriptor);
    return close(made);
}

void Send(int end, const std::string& bytes)
{
    send(end, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

// A console line as the piano sends it.
std::string Frames(Feed line)
{
    std::string frames;
    while (!line.IsEmpty()) {
        std::string data = line.Text(5);
        frames += std::string("\xE2\xE1\x06") + static_cast<char>(0x30U | data.size());
        data.resize(5);
        frames += data;
    }
    return frames + std::string("\xE2\xE1\x06\x37\0\0\0\0\0\xFE\xFF", 11);
}

void TakeEvent()
{
    if (feed.IsEmpty())
        throw EndOfInput();
    switch (feed.Byte() % 8) {
    case 1: Send(ends[Piano], Frames(Feed(feed.Line()))); break;
    case 2: Send(ends[Piano], feed.Text(feed.Byte())); break;
    case 3: Send(ends[Controller], feed.Text(feed.Byte())); break;
    case 4: Send(ends[Port], "."); break;
    case 5: HangUp(ends[Piano]); break;
    case 6: HangUp(ends[Controller]); break;
    default: break;  // silence
    }
}

// Nobody reads what the program prints, and no relative path can be created here.
const bool isQuiet = std::freopen("/dev/null", "w", stdout) != nullptr && chdir("/proc/self") == 0;

constexpr char kImage[] =
    ":0200000490046"
    "6\r\n:041FFC0001020304D7\r\n:043FFC0001020304B7\r\n:0404000056312E303216\r\n"
    ":00000001FF\r\n";

void RunUpdateMode(const char* image)
{
    TUpdater updater;
    Require(updater.Initialize(false, 0, image, TMidiCom::kPiano) == 0);
    updater.Run();
}

void RunServer()
{
    TDiagServer server;
    Require(server.Initialize(0, TMidiCom::kPiano) == 0);
    server.Run();
}

// The server finds no firmware on this machine, so its update is stepped from here.
void StepServersUpdate(const char* image)
{
    TUpdater updater;
    Require(updater.LoadIntelHex(image, nullptr) == 0 && updater.SetUpdateStatus(Connect));
    TMidiCom midi;
    TZaurusCom zaurus;
    midi.Set_connecttype(TMidiCom::kPiano);
    midi.SetMidiDescriptor(kMidiPatcherSocket);
    while (updater.UpdateStatusDiag(&midi, &zaurus) > 0) {
        char message[TMidiCom::kMaxMessage];
        char* lines[TMidiCom::kMaxLines];
        const int count = midi.ReadConsoleMessage2(message, lines, TMidiCom::kMaxLines);
        for (int i = 0; i < count; ++i)
            updater.GetCSPMessageDiag(&midi, &zaurus, lines[i],
                                      static_cast<int>(std::strlen(lines[i])));
        if (count <= 0)
            updater.IncUpdateCounter();
    }
}

}  // namespace

extern "C" {

int connect(int descriptor, const sockaddr* address, socklen_t)
{
    return LinkAt(descriptor,
                  ends[std::strcmp(address->sa_data, kMidiPatcherSocket) == 0 ? Piano : RcServer]);
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
        while (recv(end, bytes, sizeof(bytes), MSG_DONTWAIT) > 0) {
        }
    }
    TakeEvent();
    const long none[2] = {};
    return static_cast<int>(
        syscall(SYS_pselect6, count, readable, nullptr, nullptr, none, nullptr));
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
    feed = Feed(std::string(data, size));
    const MemoryFile image(kImage);
    try {
        switch (feed.Byte() % 3) {
        case 0: RunServer(); break;
        case 1: RunUpdateMode(image.Path()); break;
        default: StepServersUpdate(image.Path()); break;
        }
    } catch (const EndOfInput&) {
        feed = Feed("");
    }
    for (int& end : ends)
        HangUp(end);
    return 0;
}

}  // extern "C"
