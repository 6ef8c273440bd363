#include "Patcher.h"

#include "Csp.h"
#include "Hex.h"
#include "Transcript.h"

#include <algorithm>
#include <cerrno>

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

std::string HexText(const FrameBytes& bytes)
{
    std::string text;
    for (const unsigned char byte : bytes)
        text += (text.empty() ? "" : " ") + Hex(byte, 2);
    return text;
}

}  // namespace

bool Patcher::Listen(const std::string& path)
{
    listener = OpenSocket(path, SOCK_STREAM);
    return static_cast<bool>(listener);
}

// While one connection is open, the next one waits in the listener.
void Patcher::AddTo(std::vector<int>& watched) const
{
    if (client)
        watched.push_back(client.Get());
    else if (listener)
        watched.push_back(listener.Get());
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
            transcript.Note("connect " + Hex(*peer, 2));
            continue;
        case FrameCodec::Found::Stray: transcript.Bad("pair FE " + Hex(byte, 2)); continue;
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
        transcript.Bad("frame (" + std::string(complaint) + ") " + HexText(frame));
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
        transcript.Note("> midi " + Hex(kind, 2) + " " + HexText(group));
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
    isLastSent = false;
    csp.LoseLink();
}

// Adds the frames of a line to a message; none after the last one that the faults let through.
void Patcher::AddLine(const std::string& line, FrameBytes& message)
{
    transcript.Note("< console " + line);
    const unsigned char named = peer.value_or(FrameCodec::kFirstPeer);
    for (const FrameBytes& frame : FrameCodec::ConsoleFrames(kFirstByte, named, line)) {
        if (isLastSent)
            return;
        message.insert(message.end(), frame.begin(), frame.end());
        ++sentFrameCount;
        isLastSent = sentFrameCount == faults.cutAfterSent || sentFrameCount == faults.dieAfterSent;
    }
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

void Patcher::Enqueue(const FrameBytes& message)
{
    const size_t size =
        faults.pieceBytes > 0 ? static_cast<size_t>(faults.pieceBytes) : message.size();
    for (FrameBytes& piece : FrameCodec::Cut(message, size))
        writes.push_back(std::move(piece));
}

void Patcher::Say(const std::vector<std::string>& lines)
{
    FrameBytes message;
    for (const std::string& line : lines)
        AddLine(line, message);
    Enqueue(message);
}

// The CSP's next line, or a write full of them.
bool Patcher::FetchLines()
{
    FrameBytes message;
    do {
        const auto line = csp.TakeNextLine();
        if (!line)
            break;
        AddLine(*line, message);
    } while (faults.join && message.size() < kJoinLimit && !isLastSent);
    Enqueue(message);
    return !message.empty();
}

// The read that has emptied the socket continues while it finds more. It is over by the next turn.
void Patcher::LookAtSocket()
{
    int waiting = 0;
    const bool isEmpty = ioctl(client.Get(), SIOCOUTQ, &waiting) < 0 || waiting == 0;
    if (isEmpty && wasEmpty)
        unread = 0;
    wasEmpty = isEmpty;
}

// The system decodes each read by itself and gathers at most 8193 bytes, so a longer backlog in the
// socket would be cut in the middle of a frame and lost. A board that sends at the speed of a MIDI
// line never gets that far ahead. Pieces of a cut message are sent singly for the opposite reason:
// a read must end at the cut.
bool Patcher::HasRoomFor(size_t size) const
{
    return unread == 0 || (faults.pieceBytes == 0 && unread + size <= kMostUnread);
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
    wasEmpty = false;
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
    LookAtSocket();
    for (int i = 0; i < kWritesPerTurn && client && !over; ++i) {
        if (writes.empty() && (isLastSent || !FetchLines()))
            return false;
        if (!HasRoomFor(writes.front().size()) || !WriteFront())
            break;
        EndAfterLastFrame();
    }
    return true;
}
