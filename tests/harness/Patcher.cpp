#include "Patcher.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr char kEscape = '\xFE';
constexpr char kBlockEnd = '\xFF';
constexpr std::size_t kData = 5;      // data bytes of a frame
constexpr std::size_t kOutSize = 10;  // bytes of a frame of the program
constexpr std::size_t kOutKind = 4;   // where its kind stands
constexpr unsigned kLineEnd = 7;

}  // namespace

const std::string Patcher::kHead = "\xE2\xE1\x06";

std::string Patcher::Stuffed(const std::string& block)
{
    std::string stuffed;
    for (const char byte : block)
        stuffed.append(byte == kEscape ? 2 : 1, byte);
    return stuffed + kEscape + kBlockEnd;
}

std::vector<std::string> Patcher::ConsoleFrames(const std::string& line, const std::string& head)
{
    std::vector<std::string> frames;
    for (std::size_t at = 0; at < line.size(); at += kData) {
        std::string data = line.substr(at, kData);
        const char kind = static_cast<char>(0x30U + data.size());
        data.resize(kData);
        frames.push_back((head + kind).append(data));
    }
    frames.push_back(head + static_cast<char>(0x30U + kLineEnd) + std::string(kData, '\0'));
    return frames;
}

bool Patcher::SendFrames(const std::vector<std::string>& frames) const
{
    std::string bytes;
    for (const std::string& frame : frames)
        bytes += Stuffed(frame);
    return Send(bytes);
}

bool Patcher::SendLines(const std::vector<std::string>& lines, const std::string& head) const
{
    std::vector<std::string> frames;
    for (const std::string& line : lines)
        for (const std::string& frame : ConsoleFrames(line, head))
            frames.push_back(frame);
    return SendFrames(frames);
}

std::vector<std::string> Patcher::Frames()
{
    const std::string& bytes = Received();
    std::vector<std::string> frames;
    std::string block;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] != kEscape) {
            block += bytes[i];
            continue;
        }
        if (++i >= bytes.size())
            break;
        if (bytes[i] == kEscape) {
            block += kEscape;
        } else if (bytes[i] == kBlockEnd) {
            frames.push_back(block);
            block.clear();
        }  // else a connect sequence, which is no block
    }
    return frames;
}

std::vector<std::string> Patcher::Lines()
{
    std::vector<std::string> lines;
    std::string line;
    for (const std::string& frame : Frames()) {
        if (frame.size() != kOutSize ||
            (static_cast<unsigned char>(frame[kOutKind]) & 0xF0U) != 0x30U)
            continue;
        const unsigned count = static_cast<unsigned char>(frame[kOutKind]) & 7U;
        if (count == kLineEnd) {
            lines.push_back(line);
            line.clear();
        } else {
            line += frame.substr(kOutKind + 1, std::min<std::size_t>(count, kData));
        }
    }
    return lines;
}

bool Patcher::WaitForLine(const std::string& line)
{
    return WaitUntil([&] {
        const std::vector<std::string> lines = Lines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    });
}
