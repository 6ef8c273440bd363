#include "FakeLink.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>

#include <sys/socket.h>
#include <unistd.h>

#include "Violation.h"

namespace {

constexpr int kConnecttype = 225;
constexpr int kDescriptor = 1000;  // no file of this program's

// A frame as it lies on the wire. No text of these conversations holds the escape byte, so each has
// its 10 bytes and the two of the block's end.
constexpr std::size_t kFrameSize = 12;
constexpr std::size_t kKindAt = 4;
constexpr std::size_t kDataAt = 5;
constexpr unsigned kConsoleKind = 0x30;
constexpr unsigned kLineEnd = 0x37;

std::string sent;

std::string Group(const std::string& frame)
{
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(frame[at]); };
    char text[32];
    std::snprintf(text, sizeof(text), "group %02X %02X %02X %02X", byte(kDataAt + 1),
                  byte(kDataAt + 2), byte(kDataAt + 3), byte(kDataAt));
    return text;
}

}  // namespace

extern "C" {

ssize_t send(int descriptor, const void* bytes, std::size_t size, int)
{
    if (descriptor != kDescriptor) {
        errno = EBADF;
        return -1;
    }
    sent.append(static_cast<const char*>(bytes), size);
    return static_cast<ssize_t>(size);
}

// The half second before "STATUS" and the logs are the machines' business, not their behaviour.
int usleep(useconds_t)
{
    return 0;
}

std::FILE* fopen(const char*, const char*)
{
    errno = ENOENT;
    return nullptr;
}

}  // extern "C"

FakeLink::FakeLink()
{
    midi.Set_connecttype(kConnecttype);
    Mend();
}

void FakeLink::Cut()
{
    midi.midiDescriptor = -1;
}

void FakeLink::Mend()
{
    midi.midiDescriptor = kDescriptor;
}

std::vector<std::string> FakeLink::TakeSent()
{
    std::vector<std::string> lines;
    std::string line;
    for (std::size_t at = 0; at < sent.size(); at += kFrameSize) {
        const std::string frame = sent.substr(at, kFrameSize);
        const unsigned kind = static_cast<unsigned char>(frame[kKindAt]);
        if (kind == kLineEnd) {
            lines.push_back(line);
            line.clear();
        } else if ((kind & 0xF0U) == kConsoleKind) {
            line += frame.substr(kDataAt, kind & 7U);
        } else {
            lines.push_back(Group(frame));
        }
    }
    sent.clear();
    return lines;
}

void HoldLines(const std::vector<std::string>& sent, const std::vector<std::string>& expected,
               const std::string& otherwise)
{
    if (sent == expected)
        return;
    std::string what = "other lines go out " + otherwise + ":";
    for (const std::string& line : sent)
        what += " " + line;
    throw Violation{what};
}
