// A controller that sends anything: the server keeps serving, and nothing of what a command does
// goes wrong.

#include <memory>

#include <sys/socket.h>

#include "FuzzInput.h"
#include "TDiagServer.h"

namespace {

constexpr std::size_t kMostInput = 2048;  // so that no socket fills up

void Empty(int descriptor)
{
    char bytes[65536];
    while (recv(descriptor, bytes, sizeof(bytes), MSG_DONTWAIT) > 0) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    int controller[2];
    int piano[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, controller) == 0);
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, piano) == 0);

    TDiagServer server;
    server.zaurus = new TZaurusCom;
    server.midi = new TMidiCom;
    server.rcserver = new TRCServerCom;
    server.zaurus->SetZaurusId(controller[0]);
    server.midi->Set_connecttype(225);
    server.midi->midiDescriptor = piano[0];
    const auto updater = std::make_unique<TUpdater>();
    const auto reader = std::make_unique<TCspReader>();
    server.updater = updater.get();
    server.reader = reader.get();

    char buffer[TZaurusCom::kMaxMessage + 1];
    Feed feed(data, size < kMostInput ? size : kMostInput);
    while (!feed.IsEmpty()) {
        const std::string piece = feed.Text(feed.Byte());
        if (piece.empty())
            continue;
        Require(send(controller[1], piece.data(), piece.size(), MSG_NOSIGNAL) > 0);
        server.ProcessZaurus(buffer);
        Require(server.zaurus->GetZaurusId() >= 0 && server.midi->GetMidiDescriptor() >= 0);
        Empty(controller[1]);
        Empty(piano[1]);
        // The gate must not stay shut behind a command that started a machine.
        if (feed.Byte() % 2 == 0) {
            server.updater->ClearUpdateStatus();
            server.reader->ClearReaderStatus();
        }
    }
    close(controller[1]);
    close(piano[1]);
    return 0;
}
