// Stuffing as a round trip, and frames in pieces of any size turned into lines.

#include <cstring>
#include <vector>

#include "FuzzInput.h"
#include "TMidiCom.h"

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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    TMidiCom link;
    Feed feed(data, size);
    RoundTrip(link, feed.Text(feed.Byte()));

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
