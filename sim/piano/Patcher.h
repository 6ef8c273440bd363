#pragma once

#include "FrameCodec.h"
#include "UnixSocket.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

class Csp;
class Transcript;

// How the link misbehaves. All off: each message is one write.
struct LinkFaults {
    int pieceBytes = 0;    // each message in writes of so many bytes, whatever its frames
    bool join = false;     // as many messages in one write as fit
    int cutAfter = 0;      // the link drops after so many frames of the system, once
    int cutEvery = 0;      // ... again and again
    int dieAfter = 0;      // the process ends after so many frames
    int cutAfterSent = 0;  // the link drops after so many frames to the system, once
    int dieAfterSent = 0;  // the process ends after so many
};

// The MIDI Patcher: one connection at a time, the frames on it, and the lines that pass through it
// to and from the CSP. The listener stays open, so the system can reconnect at once.
class Patcher {
public:
    Patcher(Csp& board, Transcript& log) : csp(board), transcript(log) {}

    void SetFaults(const LinkFaults& chosen) { faults = chosen; }
    bool Listen(const std::string& path);
    bool IsConnected() const { return static_cast<bool>(client); }

    void AddTo(std::vector<int>& watched) const;
    void Accept();
    // Receive reads the bytes, Process handles them. Between the two the caller can handle what was
    // sent before these bytes on other sockets.
    void Receive();
    void Process();
    // True when the process is to end.
    bool IsOver() const { return over; }
    // Sends as much as the link accepts. True when more is waiting.
    bool Send();

    // Queues one message: its lines in a single write.
    void Say(const std::vector<std::string>& lines);
    void Drop(const std::string& reason);
    void NoteFrames() const;

private:
    void TakeBlock();
    void TakeFrame(const FrameBytes& frame);
    void CountFrame();
    void Die();
    void EndAfterLastFrame();

    void AddLine(const std::string& line, FrameBytes& message);
    void Enqueue(const FrameBytes& message);
    bool FetchLines();
    void LookAtSocket();
    bool HasRoomFor(size_t size) const;
    bool WriteFront();

    Csp& csp;
    Transcript& transcript;
    LinkFaults faults;

    Descriptor listener;
    Descriptor client;
    std::optional<unsigned char> peer;  // what the latest connect sequence or frame named
    FrameBytes received;
    bool ended = false;  // the system has closed the connection
    FrameCodec codec;
    std::string lineText;     // the console line being gathered
    int frameCount = 0;       // from the system
    int sentFrameCount = 0;   // to it
    bool isLastSent = false;  // no frame goes out after those in `writes`
    bool over = false;

    std::deque<FrameBytes> writes;  // one write each
    size_t unread = 0;              // bytes written since all was read
    bool wasEmpty = false;          // the socket, one turn ago
};
