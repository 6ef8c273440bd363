#include "MidiPeer.h"

#include "FrameCodec.h"
#include "HexText.h"

namespace {

constexpr std::size_t kData = 5;      // data bytes of a frame
constexpr std::size_t kOutSize = 10;  // bytes of a frame of the program
constexpr char kMidi = '\xC0';        // the kind of a MIDI group
constexpr char kLineEnd = 0x37;

}  // namespace

const std::string MidiPeer::kHead = "\xE2\xE1\x06";

std::string MidiPeer::Stuff(const std::string& block)
{
    const FrameBytes stuffed = FrameCodec::Stuff({block.begin(), block.end()});
    return {stuffed.begin(), stuffed.end()};
}

std::string Frames(const std::vector<std::string>& lines, const std::string& head)
{
    std::string frames;
    for (const std::string& line : lines)
        for (const FrameBytes& frame : FrameCodec::ConsoleFrames(head[0], head[1], line))
            frames.append(frame.begin(), frame.end() - 2);  // without the end of a block
    return frames;
}

bool MidiPeer::SendLines(const std::vector<std::string>& lines) const
{
    return Send(Stuff(::Frames(lines)));
}

std::vector<std::string> MidiPeer::Frames()
{
    std::vector<std::string> frames;
    FrameCodec codec;
    for (const char byte : Received())
        if (codec.Take(static_cast<unsigned char>(byte)) == FrameCodec::Found::Block)
            frames.emplace_back(codec.Block().begin(), codec.Block().end());
    return frames;
}

std::vector<std::string> MidiPeer::Lines()
{
    std::vector<std::string> lines;
    std::string text;
    for (const std::string& frame : Frames()) {
        const char kind = frame.size() == kOutSize ? frame[kOutSize - kData - 1] : '\0';
        const std::string data = frame.substr(frame.size() - std::min(frame.size(), kData));
        if (kind == kMidi)
            lines.push_back(ToHex(data));
        else if (kind == kLineEnd)
            lines.push_back(std::exchange(text, ""));
        else if (kind >= 0x31 && kind < kLineEnd)
            text += data.substr(0, static_cast<std::size_t>(kind - 0x30));
    }
    return lines;
}

std::vector<std::string> MidiPeer::TakeSent()
{
    std::vector<std::string> sent = Lines();
    const std::size_t taken = std::exchange(linesTaken, sent.size());
    sent.erase(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(taken));
    return sent;
}

bool MidiPeer::WaitForLine(const std::string& line)
{
    return WaitUntil([&] {
        const std::vector<std::string> lines = Lines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    });
}
