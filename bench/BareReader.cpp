// Measures what a read-back costs the system alone: makes the server's system calls for each record
// in their order, and only counts the lines received. The piano must send a message only after the
// last one was read, so that a read returns complete messages, nearly always one.
//
//    bare_reader        runs in a simulated unit

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include <unistd.h>

#include "Console.h"
#include "Machine.h"
#include "ReadSet.h"
#include "TMidiCom.h"
#include "UnitPaths.h"

namespace {

constexpr int kConnecttype = 225;
constexpr int kMessageWait = 5;  // seconds

constexpr int kBlocks = 96;        // 0x60000 bytes, requested in blocks of 0x1000
constexpr int kBlocksInPage = 16;  // a page begins with the record of its upper address
constexpr int kDataRecords = 342;  // of 12 bytes, the last of them shorter, in a block

// A frame on the wire, without a byte that needs doubling.
constexpr ssize_t kFrameSize = 11;
constexpr ssize_t kKindAt = 3;
constexpr char kLineEnd = '\x37';

// Makes the calls of one pass of the server's loop with a message. Returns the number of lines.
int Pass(int descriptor)
{
    static char buffer[TMidiCom::kMaxMessage];
    std::fputs("Diag Update Status()\n", stdout);
    std::fputs("Update Status CSP\n", stdout);
    for (const int seconds : {kServerTimeout, kMessageWait}) {
        ReadSet set;
        set.Add(descriptor);
        if (set.Wait(seconds) <= 0)
            std::exit(EXIT_FAILURE);
    }
    const ssize_t count = read(descriptor, buffer, sizeof(buffer));
    if (count <= 0)
        std::exit(EXIT_FAILURE);
    int lines = 0;
    for (ssize_t kind = kKindAt; kind < count; kind += kFrameSize)
        lines += buffer[kind] == kLineEnd ? 1 : 0;
    return lines;
}

}  // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    TMidiCom midi;
    midi.Set_connecttype(kConnecttype);
    if (midi.SetMidiDescriptor(kMidiPatcherSocket) < 0 || !midi.Connect_i2cserver())
        return EXIT_FAILURE;
    const int descriptor = midi.GetMidiDescriptor();

    AskForStatus(&midi, kReadFlashMode);
    Pass(descriptor);
    SendLine(&midi, "READ   :90040000:900A0000:0C");
    Pass(descriptor);
    for (int block = 0; block < kBlocks; ++block) {
        SendLine(&midi, kAskNext);
        // The end-of-file record needs no request.
        const bool hasOneMore = block % kBlocksInPage == 0 || block == kBlocks - 1;
        int missing = kDataRecords + (hasOneMore ? 1 : 0);
        while (missing > 0)
            missing -= Pass(descriptor);
    }
    return EXIT_SUCCESS;
}
