#include "TMidiCom.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <unistd.h>

#include "ReadSet.h"
#include "Sockets.h"
#include "Trace.h"

namespace {

constexpr unsigned char kEscape = 0xFE;
constexpr unsigned char kBlockEnd = 0xFF;

constexpr unsigned char kFrameStart[] = {0xE2, 0xE0};  // of an outgoing frame
constexpr unsigned char kFrameMark = 0x06;
constexpr int kOutFrameSize = 10;
constexpr int kStuffedFrameSize = 2 * kOutFrameSize + 2;
constexpr int kDataSize = 5;

// Where the fields of an incoming frame stand.
constexpr int kPeerAt = 1;
constexpr int kMarkAt = 2;
constexpr int kKindAt = 3;
constexpr int kDataAt = 4;
constexpr int kInFrameSize = kDataAt + kDataSize;

constexpr unsigned char kKindMidi = 0xC0;
constexpr unsigned char kKindMidiAlternate = 0x80;
constexpr unsigned char kKindMidiLow = 0x34;
constexpr unsigned char kKindConsole = 0x30;
constexpr unsigned char kLengthMask = 0x07;
constexpr unsigned char kLineEnd = 0x07;  // in the place of the length

constexpr int kMessageWait = 5;     // seconds of silence inside a message
constexpr int kKindFromTheEnd = 6;  // where the last frame's kind byte stands
// Bytes on the socket beyond which a message must have ended: a doubled FE and a block's end for
// each of its bytes. A peer that sends nothing but block ends would hold the process forever.
constexpr int kMaxRaw = 4 * TMidiCom::kMaxMessage;

constexpr int kLineEndSize = 3;  // CR, LF and NUL

unsigned char Byte(char c)
{
    return static_cast<unsigned char>(c);
}

unsigned char MidiKind(int kind)
{
    if (kind == 0)
        return kKindMidi;
    return kind > 0 ? kKindMidiAlternate : kKindMidiLow;
}

// The number of text bytes that a frame of this kind announces: 7 ends a line, 0 is no text.
int ConsoleCount(unsigned char kind)
{
    return (kind & 0xF0) == kKindConsole ? kind & kLengthMask : 0;
}

// A message ends with a frame whose kind byte has 7 in its low three bits.
bool IsMessageComplete(const char* gathered, int count)
{
    return count >= kKindFromTheEnd &&
           (Byte(gathered[count - kKindFromTheEnd]) & kLengthMask) == kLineEnd;
}

}  // namespace

TMidiCom::TMidiCom()
    : midiDescriptor(-1), consoleText(), consoleLength(0), connecttype(0), carriedLine()
{
    Trace("Init Midicom\n");
}

TMidiCom::~TMidiCom()
{
    Trace("Delete Midicom\n");
    if (midiDescriptor >= 0)
        close(midiDescriptor);
}

int TMidiCom::GetMidiDescriptor() const
{
    return midiDescriptor;
}

int TMidiCom::SetMidiDescriptor(const char* path)
{
    midiDescriptor = mkclisocUNIX(path);
    if (midiDescriptor < 0)
        return -1;
    Trace("MIDI Alive\n");
    return midiDescriptor;
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
    if (!IsConnecttypeGood() || midiDescriptor < 0)
        return false;
    const unsigned char sequence[] = {kEscape, static_cast<unsigned char>(connecttype)};
    return WriteSocket(midiDescriptor, sequence, sizeof(sequence)) >= 0;
}

bool TMidiCom::WriteMidi(int kind, const unsigned char* group)
{
    if (midiDescriptor < 0)
        return false;
    if (!IsConnecttypeGood()) {
        CloseLink();
        return false;
    }
    const unsigned char data[kDataSize] = {group[3], group[0], group[1], group[2], 0};
    return WriteFrame(MidiKind(kind), data);
}

bool TMidiCom::WriteConsole(unsigned char channel, const char* text, int length)
{
    if (length > kMaxMessage)
        return false;
    if (!IsConnecttypeGood())
        CloseLink();

    const int base = kKindConsole | channel << 3;  // a channel too high loses its top bits below
    for (int sent = 0; sent < length; sent += kDataSize) {
        const int piece = std::min(kDataSize, length - sent);
        unsigned char data[kDataSize] = {};
        std::memcpy(data, text + sent, static_cast<std::size_t>(piece));
        WriteFrame(static_cast<unsigned char>(base | piece), data);
    }
    const unsigned char nothing[kDataSize] = {};
    return WriteFrame(static_cast<unsigned char>(base | kLineEnd), nothing);
}

int TMidiCom::ReadMessage(char* buf)
{
    char raw[kMaxMessage] = {};
    char decoded[kMaxMessage] = {};
    char gathered[kMaxMessage] = {};
    int count = 0;
    int rawCount = 0;

    while (!IsMessageComplete(gathered, count)) {
        if (midiDescriptor < 0)
            return -1;
        ReadSet set;
        set.Add(midiDescriptor);
        // Silence inside a message is a failure: a read would wait as long as the peer likes.
        if (set.Wait(kMessageWait) <= 0)
            return -1;

        const ssize_t got = read(midiDescriptor, raw, sizeof(raw));
        if (got < 0)
            return -1;
        if (got == 0) {
            CloseLink();
            return 0;
        }
        const int added = Change_i2c2bin(raw, decoded, static_cast<int>(got));
        rawCount += static_cast<int>(got);
        if (count + added > kMaxMessage || rawCount > kMaxRaw)
            return -1;
        std::memcpy(gathered + count, decoded, static_cast<std::size_t>(added));
        count += added;
    }
    std::memcpy(buf, gathered, static_cast<std::size_t>(count));
    return count;
}

int TMidiCom::ToConsole2(char* message, int length, char** lines, int capacity)
{
    // A line that began in an earlier message may be longer than the frames read so far, so it has
    // a place of its own and never overtakes the frames that are still to be read.
    bool carried = consoleLength > 0;
    int stored = 0;
    int offset = 0;

    // A message that was cut may end in a piece of a frame.
    for (int start = 0; start < length; start += kInFrameSize) {
        const char* const frame = message + start;
        const int size = std::min(kInFrameSize, length - start);
        if (size > kPeerAt && Byte(frame[kPeerAt]) != kPiano && Byte(frame[kPeerAt]) != kOther)
            return -1;
        if (size > kMarkAt && Byte(frame[kMarkAt]) != kFrameMark)
            return -1;
        if (size <= kKindAt)
            break;

        const int textCount = ConsoleCount(Byte(frame[kKindAt]));
        if (textCount != kLineEnd) {
            AppendConsoleText(frame + kDataAt, std::min(textCount, size - kDataAt));
            continue;
        }
        EndConsoleLine();
        if (stored < capacity) {
            char* line = carried ? carriedLine : message + offset;
            std::memcpy(line, consoleText, static_cast<std::size_t>(consoleLength) + 1);
            lines[stored++] = line;
            if (!carried)
                offset += consoleLength + 1;
        }
        carried = false;
        consoleLength = 0;
    }
    return stored;
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
    int written = 0;
    for (int i = 0; i < length; ++i) {
        out[written++] = in[i];
        if (Byte(in[i]) == kEscape)
            out[written++] = in[i];
    }
    out[written++] = static_cast<char>(kEscape);
    out[written++] = static_cast<char>(kBlockEnd);
    return written;
}

int TMidiCom::Change_i2c2bin(const char* in, char* out, int length) const
{
    const auto isAt = [in, length](int index, unsigned char value) {
        return index < length && Byte(in[index]) == value;
    };
    int written = 0;
    int i = 0;
    while (true) {
        if (isAt(i, kEscape) && isAt(i + 1, kBlockEnd))
            i += 2;
        if (i >= length)
            return written;
        const char byte = in[i++];
        out[written++] = byte;
        if (Byte(byte) == kEscape && isAt(i, kEscape))
            ++i;
    }
}

bool TMidiCom::IsConnecttypeGood() const
{
    return connecttype == kPiano || connecttype == kOther;
}

void TMidiCom::CloseLink()
{
    if (midiDescriptor >= 0)
        close(midiDescriptor);
    midiDescriptor = -1;
}

// Sends one frame with five data bytes. Quietly false on a link that is down.
bool TMidiCom::WriteFrame(unsigned char kind, const unsigned char* data)
{
    if (midiDescriptor < 0)
        return false;
    unsigned char frame[kOutFrameSize] = {
        kFrameStart[0], kFrameStart[1], static_cast<unsigned char>(connecttype), kFrameMark, kind};
    std::memcpy(frame + kOutFrameSize - kDataSize, data, kDataSize);

    char stuffed[kStuffedFrameSize];
    const int length = Change_bin2i2c(reinterpret_cast<const char*>(frame), stuffed, kOutFrameSize);
    if (WriteSocket(midiDescriptor, stuffed, static_cast<std::size_t>(length)) >= 0)
        return true;
    CloseLink();
    return false;
}

// Takes at most a frame's data. Drops what doesn't leave room for the line end.
void TMidiCom::AppendConsoleText(const char* text, int count)
{
    const int room = kConsoleSize - kLineEndSize - consoleLength;
    const int taken = std::min({count, kDataSize, room});
    std::memcpy(consoleText + consoleLength, text, static_cast<std::size_t>(taken));
    consoleLength += taken;
}

void TMidiCom::EndConsoleLine()
{
    consoleText[consoleLength++] = '\r';
    consoleText[consoleLength++] = '\n';
    consoleText[consoleLength] = '\0';
}
