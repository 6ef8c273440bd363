#include "FrameCodec.h"

#include <algorithm>

namespace {

constexpr unsigned char kEscape = 0xFE;
constexpr unsigned char kBlockEnd = 0xFF;
constexpr unsigned char kLineEnd = 0x37;
constexpr size_t kFrameSize = 10;
constexpr size_t kFirstData = 5;
constexpr size_t kDataSize = 5;
constexpr size_t kLongestKept = 64;  // bytes of a block; a longer one is wrong in any case

}  // namespace

FrameCodec::Found FrameCodec::Take(unsigned char byte)
{
    if (finished)
        block.clear();
    finished = false;

    if (!escaped && byte == kEscape) {
        escaped = true;
        return Found::Nothing;
    }
    if (!escaped || byte == kEscape) {
        escaped = false;
        if (block.size() < kLongestKept)
            block.push_back(byte);
        return Found::Nothing;
    }
    escaped = false;
    finished = true;
    second = byte;
    if (byte == kBlockEnd)
        return Found::Block;
    return block.empty() && IsPeer(byte) ? Found::Connect : Found::Stray;
}

const char* FrameCodec::Complaint(const FrameBytes& frame)
{
    if (frame.size() != kFrameSize)
        return "length";
    if (frame[0] != 0xE2 || frame[1] != 0xE0 || frame[3] != 0x06)
        return "constant";
    if (!IsPeer(frame[2]))
        return "peer";

    size_t used = 0;
    const unsigned char kind = frame[4];
    if (kind == 0xC0 || kind == 0x80)
        used = 4;
    else if (kind >= 0x31 && kind <= 0x35)
        used = kind & 0x07U;
    else if (kind != kLineEnd)
        return "kind";
    for (size_t i = kFirstData + used; i < kFrameSize; ++i) {
        if (frame[i] != 0)
            return "padding";
    }
    return nullptr;
}

FrameBytes FrameCodec::Stuff(const FrameBytes& block)
{
    FrameBytes stuffed;
    stuffed.reserve(block.size() + 2);
    for (const unsigned char byte : block) {
        if (byte == kEscape)
            stuffed.push_back(kEscape);
        stuffed.push_back(byte);
    }
    stuffed.push_back(kEscape);
    stuffed.push_back(kBlockEnd);
    return stuffed;
}

std::vector<FrameBytes> FrameCodec::ConsoleFrames(unsigned char first, unsigned char peer,
                                                  const std::string& line)
{
    std::vector<FrameBytes> frames;
    for (size_t at = 0; at < line.size(); at += kDataSize) {
        const size_t count = std::min(kDataSize, line.size() - at);
        FrameBytes frame{first, peer, 0x06, static_cast<unsigned char>(0x30 | count)};
        for (size_t i = 0; i < kDataSize; ++i)
            frame.push_back(i < count ? static_cast<unsigned char>(line[at + i]) : 0);
        frames.push_back(Stuff(frame));
    }
    frames.push_back(Stuff({first, peer, 0x06, kLineEnd, 0, 0, 0, 0, 0}));
    return frames;
}

std::vector<FrameBytes> FrameCodec::Cut(const FrameBytes& stuffed, size_t size)
{
    std::vector<FrameBytes> pieces;
    FrameBytes piece;
    bool inPair = false;
    for (const unsigned char byte : stuffed) {
        piece.push_back(byte);
        inPair = !inPair && byte == kEscape;
        if (piece.size() >= size && !inPair) {
            pieces.push_back(piece);
            piece.clear();
        }
    }
    if (!piece.empty())
        pieces.push_back(piece);
    return pieces;
}
