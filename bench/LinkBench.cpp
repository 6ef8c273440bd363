#include <cstddef>
#include <cstring>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "BenchData.h"
#include "TMidiCom.h"
#include "TUpdater.h"

namespace {

constexpr int kConnecttype = 225;
constexpr int kBlockSize = 0x2000;
constexpr std::size_t kImageSize = 0x10000;
constexpr int kFrameOnTheWire = 12;

// The MIDI Patcher's end of the link: takes the connection and reads what comes.
class Drain {
public:
    Drain() : path(BenchDirectory() + "/drain")
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        listener = socket(AF_UNIX, SOCK_STREAM, 0);
        unlink(path.c_str());
        if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) < 0 ||
            listen(listener, 1) < 0 || !midi.SetMidiDescriptorQuietly(path.c_str()))
            std::abort();
        peer = accept(listener, nullptr, nullptr);
    }
    ~Drain()
    {
        midi.Shut();
        if (reader.joinable())
            reader.join();
        close(peer);
        close(listener);
    }

    struct Link : TMidiCom {
        bool SetMidiDescriptorQuietly(const char* at)
        {
            Set_connecttype(kConnecttype);
            return SetMidiDescriptor(at) >= 0;
        }
        void Shut() const { shutdown(GetMidiDescriptor(), SHUT_RDWR); }
    };

    void StartReading()
    {
        reader = std::thread([this] {
            std::vector<char> bytes(1U << 16U);
            while (read(peer, bytes.data(), bytes.size()) > 0) {
            }
        });
    }

    Link midi;
    int peer = -1;

private:
    std::string path;
    int listener = -1;
    std::thread reader;
};

// Sends a whole image, as an update does: the first block, then one block an answer.
void SendImage(benchmark::State& state)
{
    Drain drain;
    drain.StartReading();
    TUpdater updater;
    const auto records = HexRecords(FirmwareBytes(kImageSize), 16);
    const std::string path = WriteHexFile("send.hex", records);
    if (updater.LoadIntelHex(path.c_str(), nullptr) < 0)
        state.SkipWithError("not loaded");
    for (auto _ : state) {
        // An address that was never reached makes the first block seek back to the first row.
        updater.SendIntelHex(&drain.midi, 0, kBlockSize);
        for (std::size_t sent = kBlockSize; sent < kImageSize + kBlockSize; sent += kBlockSize)
            updater.SendIntelHex(&drain.midi, 0x90040000 + sent, kBlockSize);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}
BENCHMARK(SendImage)->UseRealTime();

// The same writes with nothing around them: what the system's calls alone cost.
void BareWrites(benchmark::State& state)
{
    Drain drain;
    drain.StartReading();
    const auto records = HexRecords(FirmwareBytes(kImageSize), 16);
    const char frame[kFrameOnTheWire] = {};
    std::size_t frames = 0;
    for (const std::string& record : records)
        frames += (record.size() - 2 + 4) / 5 + 1;
    for (auto _ : state) {
        for (std::size_t i = 0; i < frames; ++i)
            benchmark::DoNotOptimize(
                send(drain.midi.GetMidiDescriptor(), frame, sizeof(frame), MSG_NOSIGNAL));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}
BENCHMARK(BareWrites)->UseRealTime();

// Console lines as they come in a read-back, one line a message.
void ReceiveLines(benchmark::State& state)
{
    Drain drain;
    const std::string text = HexRecords(FirmwareBytes(12), 12)[1];
    std::string message;
    std::int64_t frames = 0;
    const auto add = [&message, &frames](char kind, const std::string& data) {
        message += std::string("\xE2\xE1\x06", 3) + kind + data;
        message.append(5 - data.size(), '\0');
        message += "\xFE\xFF";
        ++frames;
    };
    const std::size_t length = text.size() - 2;
    for (std::size_t at = 0; at < length; at += 5) {
        const std::size_t count = std::min<std::size_t>(5, length - at);
        add(static_cast<char>(0x30 + count), text.substr(at, count));
    }
    add('\x37', "");

    char buffer[TMidiCom::kMaxMessage];
    char* lines[TMidiCom::kMaxLines];
    for (auto _ : state) {
        if (write(drain.peer, message.data(), message.size()) < 0)
            state.SkipWithError("not sent");
        const int count = drain.midi.ReadMessage(buffer);
        if (drain.midi.ToConsole2(buffer, count, lines, TMidiCom::kMaxLines) != 1)
            state.SkipWithError("no line");
    }
    state.SetItemsProcessed(state.iterations() * frames);
}
BENCHMARK(ReceiveLines);

}  // namespace
