#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "BenchData.h"
#include "ReadSet.h"
#include "Sockets.h"
#include "TMidiCom.h"
#include "TUpdater.h"
#include "UniqueFd.h"

namespace {

constexpr int kConnecttype = 225;
constexpr std::size_t kFrameOnTheWire = 12;
constexpr std::size_t kTextInFrame = 5;

// A block or a batch fits into a socket's default buffer, so one thread can write and then read it,
// and the figures are those of one thread.
constexpr int kBlockSize = 0x100;
constexpr std::size_t kBlocks = 64;
constexpr int kBatch = 64;

// A connected link and its other end. The sockets keep the boundaries of writes, so that a read
// returns one message, as on a line that is slower than the reader.
class Line {
public:
    Line()
    {
        midi.Set_connecttype(kConnecttype);
        const std::string path = BenchDirectory() + "/line";
        const UniqueFd listener(mkservsocUNIX(path.c_str()));
        int ends[2];
        if (!listener || midi.SetMidiDescriptor(path.c_str()) < 0 ||
            socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) < 0 ||
            dup2(ends[0], midi.GetMidiDescriptor()) < 0)
            std::abort();
        peer = ends[1];
        close(ends[0]);
    }
    ~Line() { close(peer); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    void Drain() const
    {
        char bytes[kFrameOnTheWire * 2];
        while (recv(peer, bytes, sizeof(bytes), MSG_DONTWAIT) > 0) {
        }
    }

    void Fill(const std::string& message) const
    {
        for (int i = 0; i < kBatch; ++i) {
            if (send(peer, message.data(), message.size(), MSG_DONTWAIT) < 0)
                std::abort();
        }
    }

    TMidiCom midi;
    int peer = -1;
};

void CountItems(benchmark::State& state, std::size_t itemsPerPass, const char* unit)
{
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(itemsPerPass));
    state.SetLabel(unit);
}

std::vector<std::string> ImageRecords()
{
    return HexRecords(FirmwareBytes(kBlocks * kBlockSize), 16);
}

// Sends an image as an update does: one block after another, each after the last was received.
void SendIntelHex(benchmark::State& state)
{
    Line line;
    TUpdater updater;
    const auto records = ImageRecords();
    const std::string path = WriteHexFile("send.hex", records);
    if (updater.LoadIntelHex(path.c_str(), nullptr) < 0)
        state.SkipWithError("not loaded");
    while (state.KeepRunning()) {
        // Address 0 makes the first block start at the first row.
        unsigned long address = 0;
        for (std::size_t i = 0; i <= kBlocks; ++i) {
            updater.SendIntelHex(&line.midi, address, kBlockSize);
            address = kImageStart + (i + 1) * kBlockSize;
            state.PauseTiming();
            line.Drain();
            state.ResumeTiming();
        }
    }
    CountItems(state, records.size(), "records");
}
BENCHMARK(SendIntelHex);

void SendBare(benchmark::State& state)
{
    Line line;
    const auto records = ImageRecords();
    const char frame[kFrameOnTheWire] = {};
    std::size_t frames = 0;
    for (const std::string& record : records)
        frames += (record.size() - 2 + kTextInFrame - 1) / kTextInFrame + 1;
    while (state.KeepRunning()) {
        std::size_t sent = 0;
        for (std::size_t i = 0; i <= kBlocks; ++i) {
            for (const std::size_t end = frames * (i + 1) / (kBlocks + 1); sent < end; ++sent)
                benchmark::DoNotOptimize(
                    send(line.midi.GetMidiDescriptor(), frame, sizeof(frame), MSG_NOSIGNAL));
            state.PauseTiming();
            line.Drain();
            state.ResumeTiming();
        }
    }
    CountItems(state, records.size(), "records");
}
BENCHMARK(SendBare)->Name("SendIntelHex:bare");

// A console line of a read-back: a record of 12 bytes, in one message.
struct Message {
    Message()
    {
        const std::string text = HexRecords(FirmwareBytes(12), 12)[1];
        const std::size_t length = text.size() - 2;
        for (std::size_t at = 0; at < length; at += kTextInFrame) {
            const std::size_t count = std::min(kTextInFrame, length - at);
            Add(static_cast<char>(0x30 + count), text.substr(at, count));
        }
        Add('\x37', "");
    }
    void Add(char kind, const std::string& data)
    {
        bytes += std::string("\xE2\xE1\x06", 3) + kind + data;
        bytes.append(kTextInFrame - data.size(), '\0');
        bytes += "\xFE\xFF";
        ++frames;
    }
    std::string bytes;
    std::size_t frames = 0;
};

void ReadMessage(benchmark::State& state)
{
    Line line;
    const Message message;
    char buffer[TMidiCom::kMaxMessage];
    char* lines[TMidiCom::kMaxLines];
    while (state.KeepRunning()) {
        state.PauseTiming();
        line.Fill(message.bytes);
        state.ResumeTiming();
        for (int i = 0; i < kBatch; ++i) {
            const int count = line.midi.ReadMessage(buffer);
            if (line.midi.ToConsole2(buffer, count, lines, TMidiCom::kMaxLines) != 1)
                state.SkipWithError("no line");
        }
    }
    CountItems(state, kBatch * message.frames, "frames");
}
BENCHMARK(ReadMessage)->Name("ReadMessage+ToConsole2");

void ReadBare(benchmark::State& state)
{
    Line line;
    const Message message;
    const int descriptor = line.midi.GetMidiDescriptor();
    char buffer[TMidiCom::kMaxMessage];
    while (state.KeepRunning()) {
        state.PauseTiming();
        line.Fill(message.bytes);
        state.ResumeTiming();
        for (int i = 0; i < kBatch; ++i) {
            ReadSet set;
            set.Add(descriptor);
            if (set.Wait(1) <= 0 || read(descriptor, buffer, sizeof(buffer)) <= 0)
                state.SkipWithError("nothing read");
        }
    }
    CountItems(state, kBatch * message.frames, "frames");
}
BENCHMARK(ReadBare)->Name("ReadMessage+ToConsole2:bare");

}  // namespace
