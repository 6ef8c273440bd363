// Stuffing as a round trip, and frames in pieces of any size gathered and turned into lines.

#include <cstring>
#include <vector>

#include <sys/socket.h>

#include "FuzzInput.h"
#include "TMidiCom.h"

static constexpr int kMostPieces = 64;  // what a socket holds

static void RoundTrip(TMidiCom& link, const std::string& bytes)
{
    const int length = static_cast<int>(bytes.size());
    std::vector<char> stuffed(2 * bytes.size() + 2);
    const int stuffedLength = link.Change_bin2i2c(bytes.data(), stuffed.data(), length);
    std::vector<char> wire(stuffed.begin(), stuffed.begin() + stuffedLength);
    std::vector<char> back(wire.size());
    const int backLength = link.Change_i2c2bin(wire.data(), back.data(), stuffedLength);
    Require(bytes == std::string(back.data(), static_cast<std::size_t>(backLength)));
}

// Each piece comes in a read of its own, and then the peer is gone.
static void Gather(TMidiCom& link, Feed& feed)
{
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0);
    link.midiDescriptor = ends[0];
    for (int i = 0; i < kMostPieces && !feed.IsEmpty(); ++i) {
        const std::string piece = feed.Text(1U + feed.Byte());
        if (!piece.empty())
            Require(send(ends[1], piece.data(), piece.size(), 0) > 0);
    }
    close(ends[1]);

    // A message that is too long fails, and the rest of it comes first in the next call.
    std::vector<char> message(TMidiCom::kMaxMessage);
    while (link.GetMidiDescriptor() >= 0) {
        const int count = link.ReadMessage(message.data());
        Require(count <= TMidiCom::kMaxMessage);
        if (count <= 0)
            continue;
        char* lines[TMidiCom::kMaxLines];
        const int lineCount = link.ToConsole2(message.data(), count, lines, TMidiCom::kMaxLines);
        for (int i = 0; i < lineCount; ++i)
            Require(std::strlen(lines[i]) < 1024);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    TMidiCom link;
    Feed feed(data, size);
    RoundTrip(link, feed.Text(feed.Byte()));
    if (feed.Byte() % 2 == 0) {
        Gather(link, feed);
        return 0;
    }

    while (!feed.IsEmpty()) {
        const int capacity = feed.Byte() % 8;
        const std::string raw = feed.Text(std::size_t{32} * feed.Byte());
        std::vector<char> in(raw.begin(), raw.end());
        std::vector<char> message(raw.size());
        const int length =
            link.Change_i2c2bin(in.data(), message.data(), static_cast<int>(in.size()));
        message.resize(static_cast<std::size_t>(length));
        message.shrink_to_fit();

        std::vector<char*> lines(static_cast<std::size_t>(capacity));
        const int count = link.ToConsole2(message.data(), length, lines.data(), capacity);
        Require(count <= capacity);
        for (int i = 0; i < count; ++i)
            Require(std::strlen(lines[static_cast<std::size_t>(i)]) < 1024);
    }
    return 0;
}
