#include "TMidiCom.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "ReadSet.h"
#include "Sockets.h"
#include "Trace.h"

namespace {

// Stuffing.
constexpr char kEscape = '\xFE';
constexpr char kBlockEnd = '\xFF';

// What the frames of both directions share.
constexpr int kDataSize = 5;
constexpr char kFrameMark = 0x06;

// An outgoing frame.
constexpr char kFrameStart[] = {'\xE2', '\xE0'};
constexpr int kOutFrameSize = 10;
constexpr int kStuffedFrameSize = 2 * kOutFrameSize + 2;

// Where the fields of an incoming frame stand.
constexpr int kPeerAt = 1;
constexpr int kMarkAt = 2;
constexpr int kKindAt = 3;
constexpr int kDataAt = TMidiCom::kInFrameSize - kDataSize;
constexpr int kKindFromTheEnd = TMidiCom::kInFrameSize - kKindAt;

// Kind bytes.
constexpr int kKindMidi = 0xC0;
constexpr int kKindMidiAlternate = 0x80;
constexpr int kKindMidiLow = 0x34;
constexpr int kKindConsole = 0x30;
constexpr int kKindMask = 0xF0;
constexpr int kLengthMask = 0x07;
constexpr int kLineEnd = 0x07;  // in the place of the length

constexpr int kMessageWait = 5;  // seconds of silence inside a message
// Bytes on the socket beyond which a message must have ended: a doubled FE and a block's end for
// each of its bytes. A peer that sends nothing but block ends would keep the process forever.
constexpr int kMaxRaw = 4 * TMidiCom::kMaxMessage;

constexpr char kCrLf[] = "\r\n";
constexpr int kLineEndSize = sizeof kCrLf;  // with its NUL

// As the byte that it is: a char may be negative.
unsigned char Byte(char c)
{
    return c;
}

// What doesn't fit a byte is dropped, as the bits of a channel that is too high.
char LowByte(int value)
{
    return static_cast<char>(value);
}

int MidiKind(int kind)
{
    if (kind == 0)
        return kKindMidi;
    return kind > 0 ? kKindMidiAlternate : kKindMidiLow;
}

// A message ends with a frame whose kind byte has 7 in its low three bits. Where the frames begin
// isn't looked at, so a message that is cut in the middle may end in a byte that looks the same.
bool IsMessageComplete(const char* gathered, int count)
{
    return count >= kKindFromTheEnd &&
           (Byte(gathered[count - kKindFromTheEnd]) & kLengthMask) == kLineEnd;
}

// The functions below take an incoming frame, or what is left of one at the end of a message that
// was cut.

bool IsHeadGood(std::string_view frame)
{
    if (frame.size() > kMarkAt && frame[kMarkAt] != kFrameMark)
        return false;
    if (frame.size() <= kPeerAt)
        return true;
    const int peer = Byte(frame[kPeerAt]);
    return peer == TMidiCom::kPiano || peer == TMidiCom::kOther;
}

// The number of text bytes that the frame announces: 7 ends a line, 0 is no text.
int ConsoleCount(std::string_view frame)
{
    if (frame.size() <= kKindAt)
        return 0;
    const int kind = Byte(frame[kKindAt]);
    return (kind & kKindMask) == kKindConsole ? kind & kLengthMask : 0;
}

// As many of the `count` bytes as are there. A count of 6 is taken for 5.
std::string_view TextOf(std::string_view frame, int count)
{
    if (frame.size() <= kDataAt)
        return {};
    return frame.substr(kDataAt, std::min(count, kDataSize));
}

// The finished lines of one message, each with CR LF and a NUL. They are stored over the frames
// that were read, which are longer. Only a line that began in an earlier message may be longer than
// the frames read so far, so it has a place of its own and never overwrites frames still to be
// read.
class LineStore {
public:
    // `carriedPlace` is for the first line if that began in an earlier message, otherwise null.
    LineStore(char* message, char* carriedPlace, char** itsLines, int itsCapacity)
        : next(message), carried(carriedPlace), lines(itsLines), capacity(itsCapacity)
    {}

    // Drops a line too many.
    void Add(std::string_view text)
    {
        if (count >= capacity)
            return;
        char* const carriedLine = std::exchange(carried, nullptr);
        if (carriedLine != nullptr) {
            lines[count++] = carriedLine;
            Copy(text, carriedLine);
        } else {
            lines[count++] = next;
            next = Copy(text, next);
        }
    }

    int Count() const { return count; }

private:
    // Returns the place that follows the line.
    static char* Copy(std::string_view text, char* place)
    {
        char* const end = std::copy(text.begin(), text.end(), place);
        return std::copy_n(kCrLf, kLineEndSize, end);
    }

    char* next;     // in the message, for the next line that began in it
    char* carried;  // for the first line if it began earlier; null otherwise, and from then on
    char** lines;   // the caller's
    int capacity;   // of `lines`
    int count = 0;  // lines stored
};

}  // namespace

TMidiCom::TMidiCom()
{
    Trace("Init Midicom\n");
}

// The link closes after the trace.
TMidiCom::~TMidiCom()
{
    Trace("Delete Midicom\n");
}

int TMidiCom::GetMidiDescriptor() const
{
    return midiDescriptor.Get();
}

int TMidiCom::SetMidiDescriptor(const char* path)
{
    midiDescriptor.Release();  // not closed: callers call this only while the link is down
    midiDescriptor.Reset(mkclisocUNIX(path));
    if (!midiDescriptor)
        return -1;
    if (isBounded)
        LimitWait(midiDescriptor.Get(), kMostWait);
    Trace("MIDI Alive\n");
    return midiDescriptor.Get();
}

void TMidiCom::Set_connecttype(int type)
{
    connecttype = type;
}

int TMidiCom::Get_connecttype() const
{
    return connecttype;
}

bool TMidiCom::Connect_i2cserver()
{
    if (!IsConnecttypeGood() || !midiDescriptor)
        return false;
    const char sequence[] = {kEscape, LowByte(connecttype)};
    return WriteSocket(midiDescriptor.Get(), sequence, sizeof(sequence)) >= 0;
}

bool TMidiCom::WriteMidi(int kind, const unsigned char* group)
{
    if (!midiDescriptor)
        return false;
    const char data[] = {LowByte(group[3]), LowByte(group[0]), LowByte(group[1]),
                         LowByte(group[2])};
    return WriteFrame(MidiKind(kind), {data, sizeof(data)});
}

bool TMidiCom::WriteConsole(unsigned char channel, const char* text, int length)
{
    if (length > kMaxMessage)
        return false;
    // Nothing goes out any more once a frame has failed, so the last result is that of all.
    const int base = kKindConsole | channel << 3;
    for (int sent = 0; sent < length; sent += kDataSize) {
        const int count = std::min(kDataSize, length - sent);
        WriteFrame(base | count, std::string_view(text + sent, count));
    }
    return WriteFrame(base | kLineEnd, {});
}

int TMidiCom::ReadMessage(char* buf)
{
    // Clearing these for each message cost more than all other work on it. Each byte is written
    // before it is read: only the `got` bytes of a read and the `count` bytes gathered are used.
    char raw[kMaxMessage];
    char decoded[kMaxMessage];
    char gathered[kMaxMessage];
    int count = 0;
    int rawCount = 0;
    do {
        const int got = ReadPiece(raw);
        if (got <= 0)
            return got;
        rawCount += got;
        const int added = Change_i2c2bin(raw, decoded, got);
        if (count + added > kMaxMessage || rawCount > kMaxRaw)
            return -1;
        std::copy_n(decoded, added, gathered + count);
        count += added;
    } while (!IsMessageComplete(gathered, count));
    std::copy_n(gathered, count, buf);
    return count;
}

int TMidiCom::ToConsole2(char* message, int length, char** lines, int capacity)
{
    LineStore store(message, consoleLength > 0 ? carriedLine : nullptr, lines, capacity);
    const std::string_view frames(message, std::max(length, 0));
    for (std::size_t start = 0; start < frames.size(); start += kInFrameSize) {
        const std::string_view frame = frames.substr(start, kInFrameSize);
        if (!IsHeadGood(frame))
            return -1;
        if (TakeFrame(frame)) {
            store.Add(std::string_view(consoleText, consoleLength));
            consoleLength = 0;
        }
    }
    return store.Count();
}

int TMidiCom::ReadConsoleMessage2(char* message, char** lines, int capacity)
{
    Trace("Rcv message\n");
    const int count = ReadMessage(message);
    if (count <= 0)
        return count;
    return ToConsole2(message, count, lines, capacity);
}

int TMidiCom::Change_bin2i2c(const char* in, char* out, int length) const
{
    char* end = out;
    for (const char byte : std::string_view(in, std::max(length, 0))) {
        *end++ = byte;
        if (byte == kEscape)
            *end++ = byte;
    }
    *end++ = kEscape;
    *end++ = kBlockEnd;
    return static_cast<int>(end - out);
}

// Of two block ends in a row only the first is passed over: the second is an empty block, and a
// peer that sends one is out of step, which its bytes then show.
int TMidiCom::Change_i2c2bin(const char* in, char* out, int length) const
{
    std::string_view rest(in, std::max(length, 0));
    char* end = out;
    while (!rest.empty()) {
        const char* const escape = std::find(rest.begin(), rest.end(), kEscape);
        end = std::copy(rest.begin(), escape, end);
        rest.remove_prefix(escape - rest.begin());
        if (rest.size() > 1 && rest[1] == kBlockEnd)
            rest.remove_prefix(2);
        if (rest.empty())
            break;
        const char byte = rest.front();
        *end++ = byte;
        const bool isDoubled = byte == kEscape && rest.size() > 1 && rest[1] == kEscape;
        rest.remove_prefix(isDoubled ? 2 : 1);
    }
    return static_cast<int>(end - out);
}

bool TMidiCom::IsConnecttypeGood() const
{
    return connecttype == kPiano || connecttype == kOther;
}

// Sends one frame with up to five data bytes. Quietly false on a link that is down.
bool TMidiCom::WriteFrame(int kind, std::string_view data)
{
    if (!midiDescriptor)
        return false;
    // No peer would answer a frame with another type, so the owner is to see the link as lost.
    if (IsConnecttypeGood() && SendFrame(kind, data))
        return true;
    midiDescriptor.Reset();
    return false;
}

bool TMidiCom::SendFrame(int kind, std::string_view data) const
{
    // The bytes that the data doesn't fill are 0.
    char frame[kOutFrameSize] = {kFrameStart[0], kFrameStart[1], LowByte(connecttype), kFrameMark,
                                 LowByte(kind)};
    data.copy(frame + kOutFrameSize - kDataSize, kDataSize);

    char stuffed[kStuffedFrameSize];
    const int length = Change_bin2i2c(frame, stuffed, kOutFrameSize);
    return WriteSocket(midiDescriptor.Get(), stuffed, length) >= 0;
}

// Makes one read of at most kMaxMessage bytes. The results are those of ReadMessage.
int TMidiCom::ReadPiece(char* raw)
{
    if (!midiDescriptor)
        return -1;
    ReadSet set;
    set.Add(midiDescriptor.Get());
    // Silence inside a message is a failure: a read would wait as long as the peer likes.
    if (set.Wait(kMessageWait) <= 0)
        return -1;
    const ssize_t got = read(midiDescriptor.Get(), raw, kMaxMessage);
    if (got == 0)
        midiDescriptor.Reset();
    return static_cast<int>(got);
}

// Adds the text of a frame to the line; what doesn't leave room for the line end is dropped. True
// when the frame ends the line.
bool TMidiCom::TakeFrame(std::string_view frame)
{
    const int count = ConsoleCount(frame);
    if (count == kLineEnd)
        return true;
    const int room = kConsoleSize - kLineEndSize - consoleLength;
    const std::string_view text = TextOf(frame, count);
    consoleLength += static_cast<int>(text.copy(consoleText + consoleLength, room));
    return false;
}
