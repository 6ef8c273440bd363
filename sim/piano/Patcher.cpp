#include "Patcher.h"

#include "Csp.h"
#include "Transcript.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr size_t kReadSize = 0x10000;
constexpr unsigned char kFirstByte = 0xE2;  // of each frame to the system
constexpr size_t kMostUnread = 8000;        // bytes in the socket
constexpr size_t kJoinLimit = 7000;         // bytes in one write; the system gathers at most 8193
constexpr int kWritesPerTurn = 64;          // then the other descriptors are served

std::string HexText(const unsigned char* bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), i == 0 ? "%02X" : " %02X", bytes[i]);
        text += digits;
    }
    return text;
}

FrameBytes Joined(const std::vector<FrameBytes>& parts)
{
    FrameBytes whole;
    for (const FrameBytes& part : parts)
        whole.insert(whole.end(), part.begin(), part.end());
    return whole;
}

}  // namespace

bool Patcher::Listen(const std::string& path)
{
    listener = OpenSocket(path, SOCK_STREAM);
    return IsListening();
}

// While one connection is open, the next one waits in the listener.
void Patcher::AddTo(std::vector<pollfd>& watched) const
{
    if (client)
        watched.push_back({client.Get(), POLLIN, 0});
    else if (listener)
        watched.push_back({listener.Get(), POLLIN, 0});
}

void Patcher::Accept()
{
    if (client)
        return;
    client = AcceptFrom(listener);
    if (!client)
        return;
    transcript.Note("connected");
    codec = FrameCodec();
    lineText.clear();
    ended = false;
}

void Patcher::Receive()
{
    if (!client)
        return;
    received.resize(kReadSize);
    const ssize_t count = read(client.Get(), received.data(), received.size());
    ended = count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
    received.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
}

void Patcher::Process()
{
    for (const unsigned char byte : received) {
        switch (codec.Take(byte)) {
        case FrameCodec::Found::Nothing: continue;
        case FrameCodec::Found::Connect:
            peer = codec.Second();
            transcript.Note("connect " + HexText(&*peer, 1));
            continue;
        case FrameCodec::Found::Stray: transcript.Bad("pair FE " + HexText(&byte, 1)); continue;
        case FrameCodec::Found::Block: TakeBlock(); break;
        }
        CountFrame();
        if (over)
            return;
        if (!client)
            break;
    }
    received.clear();
    if (client && ended) {
        if (codec.IsInside())
            transcript.Bad("block cut by the end of the connection");
        Drop("closed");
    }
}

void Patcher::TakeBlock()
{
    const FrameBytes& frame = codec.Block();
    const char* complaint = FrameCodec::Complaint(frame);
    if (complaint == nullptr && peer && frame[2] != *peer)
        complaint = "peer";
    if (complaint != nullptr) {
        transcript.Bad("frame (" + std::string(complaint) + ") " +
                       HexText(frame.data(), frame.size()));
        return;
    }
    peer = frame[2];
    TakeFrame(frame);
}

void Patcher::TakeFrame(const FrameBytes& frame)
{
    const unsigned char kind = frame[4];
    const unsigned char* data = frame.data() + 5;
    if ((kind & 0xF0U) != 0x30) {
        const FrameBytes group{data[1], data[2], data[3], data[0]};
        transcript.Note("> midi " + HexText(&kind, 1) + " " + HexText(group.data(), group.size()));
        csp.TakeMidi(group);
        return;
    }
    if (kind != 0x37) {
        lineText.append(data, data + (kind & 0x07U));
        return;
    }
    transcript.Note("> console " + lineText);
    csp.TakeLine(lineText);
    lineText.clear();
}

void Patcher::CountFrame()
{
    ++frameCount;
    if (frameCount == faults.dieAfter)
        return Die();
    const bool cutNow =
        frameCount == faults.cutAfter || (faults.cutEvery > 0 && frameCount % faults.cutEvery == 0);
    if (cutNow)
        Drop("dropped");
}

void Patcher::Die()
{
    transcript.Note("died");
    over = true;
}

void Patcher::NoteFrames() const
{
    transcript.Note("frames " + std::to_string(frameCount) + " came " +
                    std::to_string(sentFrameCount) + " went");
}

void Patcher::Drop(const std::string& reason)
{
    if (!client)
        return;
    transcript.Note(reason);
    client.Close();
    writes.clear();
    unread = 0;
    wasEmpty = false;
    isLastSent = false;
    csp.LoseLink();
}

std::vector<FrameBytes> Patcher::FramesOf(const std::string& line) const
{
    transcript.Note("< console " + line);
    return FrameCodec::ConsoleFrames(kFirstByte, Peer(), line);
}

// The frames that are sent when one of them is the last.
std::vector<FrameBytes> Patcher::CutAfterLastFrame(const std::vector<FrameBytes>& frames)
{
    std::vector<FrameBytes> sent;
    for (const FrameBytes& frame : frames) {
        if (isLastSent)
            break;
        sent.push_back(frame);
        ++sentFrameCount;
        isLastSent = sentFrameCount == faults.cutAfterSent || sentFrameCount == faults.dieAfterSent;
    }
    return sent;
}

void Patcher::EndAfterLastFrame()
{
    if (!isLastSent || !writes.empty())
        return;
    if (sentFrameCount == faults.dieAfterSent)
        Die();
    else
        Drop("dropped");
}

void Patcher::Enqueue(const std::vector<FrameBytes>& all)
{
    const std::vector<FrameBytes> frames = CutAfterLastFrame(all);
    if (frames.empty())
        return;
    std::vector<FrameBytes> units{Joined(frames)};
    size_t size = units[0].size();
    if (faults.frameBytes > 0) {
        units = frames;
        size = static_cast<size_t>(faults.frameBytes);
    } else if (faults.streamBytes > 0) {
        size = static_cast<size_t>(faults.streamBytes);
    }
    for (const FrameBytes& unit : units) {
        for (FrameBytes& piece : FrameCodec::Cut(unit, size, faults.keepPairs))
            writes.push_back(std::move(piece));
    }
}

void Patcher::Say(const std::vector<std::string>& lines)
{
    std::vector<FrameBytes> frames;
    for (const std::string& line : lines) {
        for (FrameBytes& frame : FramesOf(line))
            frames.push_back(std::move(frame));
    }
    if (!frames.empty())
        Enqueue(frames);
}

// The CSP's next line, or a write full of them.
bool Patcher::FetchLines()
{
    std::vector<FrameBytes> frames;
    size_t size = 0;
    do {
        const auto line = csp.TakeNextLine();
        if (!line)
            break;
        for (FrameBytes& frame : FramesOf(*line)) {
            size += frame.size();
            frames.push_back(std::move(frame));
        }
    } while (faults.join && size < kJoinLimit);
    if (!frames.empty())
        Enqueue(frames);
    return !frames.empty();
}

// The system decodes each read by itself and gathers at most 8193 bytes, so a longer backlog in the
// socket would be cut in the middle of a frame and lost. A board that sends at the speed of a MIDI
// line never gets that far ahead. Pieces of a cut message are sent singly for the opposite reason:
// a read must end at the cut.
bool Patcher::HasRoomFor(size_t size)
{
    const bool singly = faults.frameBytes > 0 || faults.streamBytes > 0;
    if (unread == 0 || (!singly && unread + size <= kMostUnread))
        return true;
    int waiting = 0;
    const bool empty = ioctl(client.Get(), SIOCOUTQ, &waiting) < 0 || waiting == 0;
    // The read that has emptied the socket continues while it finds more. It is over by the next
    // turn.
    const bool stillEmpty = empty && wasEmpty;
    wasEmpty = empty && !stillEmpty;
    if (stillEmpty)
        unread = 0;
    return stillEmpty;
}

bool Patcher::WriteFront()
{
    FrameBytes& front = writes.front();
    const ssize_t count = send(client.Get(), front.data(), front.size(), MSG_NOSIGNAL);
    if (count < 0) {
        // Receive notices a vanished peer, after the last bytes that it has sent.
        if (errno != EAGAIN && errno != EINTR)
            writes.clear();
        return false;
    }
    unread += static_cast<size_t>(count);
    if (static_cast<size_t>(count) < front.size())
        front.erase(front.begin(), front.begin() + count);
    else
        writes.pop_front();
    return true;
}

bool Patcher::Send()
{
    if (!client)
        return false;
    for (int i = 0; i < kWritesPerTurn && client && !over; ++i) {
        if (writes.empty() && (isLastSent || !FetchLines()))
            return false;
        if (!HasRoomFor(writes.front().size()) || !WriteFront())
            break;
        EndAfterLastFrame();
    }
    return true;
}
