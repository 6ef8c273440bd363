#pragma once

#include <string>
#include <vector>

using FrameBytes = std::vector<unsigned char>;

// The bytes on the MIDI Patcher's link. In both directions FE is doubled, and FE FF ends a block.
// The system begins with FE E1 or FE E5, once. Its blocks are frames of 10 bytes:
//
//    0    1    2      3    4      5 .. 9
//   +----+----+------+----+------+---------+
//   | E2 | E0 | peer | 06 | kind | data[5] |
//   +----+----+------+----+------+---------+
//
// and the frames that it gets have 9, without the E0:
//
//    0       1      2    3      4 .. 8
//   +-------+------+----+------+---------+
//   | first | peer | 06 | kind | data[5] |
//   +-------+------+----+------+---------+
//
// kind 31 .. 35: 1 to 5 bytes of console text; 37: the end of a line;
//      C0, 80:   data is group[3], group[0], group[1], group[2], 0.
//
// An object parses one stream, byte by byte, wherever the reads have cut it.
class FrameCodec {
public:
    enum class Found {
        Nothing,  // more bytes are needed
        Connect,  // the connect sequence; Second() is its peer
        Block,    // Block() is complete
        Stray,    // FE before Second(), an invalid pair
    };
    Found Take(unsigned char byte);
    const FrameBytes& Block() const { return block; }
    unsigned char Second() const { return second; }
    // True when the stream stops inside a block.
    bool IsInside() const { return escaped || (!finished && !block.empty()); }

    static constexpr unsigned char kFirstPeer = 0xE1;
    static constexpr unsigned char kSecondPeer = 0xE5;
    static bool IsPeer(unsigned char byte) { return byte == kFirstPeer || byte == kSecondPeer; }
    // What is wrong with a frame of the system; null when nothing is.
    static const char* Complaint(const FrameBytes& frame);

    static FrameBytes Stuff(const FrameBytes& block);
    // The frames of one console line, each stuffed.
    static std::vector<FrameBytes> ConsoleFrames(unsigned char first, unsigned char peer,
                                                 const std::string& line);
    // Cuts stuffed bytes into pieces of `size`, and one byte more where a pair that begins with FE
    // would be parted.
    static std::vector<FrameBytes> Cut(const FrameBytes& stuffed, size_t size);

private:
    FrameBytes block;
    bool escaped = false;
    bool finished = false;
    unsigned char second = 0;
};
