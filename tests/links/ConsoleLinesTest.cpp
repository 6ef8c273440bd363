// Console frames that become lines of text.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "HexText.h"
#include "MidiPeer.h"
#include "TMidiCom.h"

namespace {

using Lines = std::vector<std::string>;

// The frames of complete lines.
std::string Frames(const Lines& lines)
{
    return MidiPeer::EncodeLines(lines);
}

// The frames of a line without its end.
std::string Begun(const std::string& text)
{
    const std::string frames = Frames({text});
    return frames.substr(0, frames.size() - 9);
}

// A link. A byte that would end a line follows each message, so that a read past the end shows.
struct Console {
    // The lines, or "bad" for a bad frame.
    Lines Take(const std::string& message, std::size_t capacity = 100)
    {
        const std::string guarded = message + '7';
        std::vector<char> bytes(guarded.begin(), guarded.end());
        std::vector<char*> lines(capacity);
        const int count = midi.ToConsole2(bytes.data(), static_cast<int>(message.size()),
                                          lines.data(), static_cast<int>(capacity));
        return count < 0 ? Lines{"bad"} : Lines{lines.begin(), lines.begin() + count};
    }

    TMidiCom midi;
};

}  // namespace

TEST(ConsoleLines, ConsistOfTextThatFramesAnnounce)
{
    const std::string line = Frames({"x"});
    EXPECT_EQ(Console().Take(Bytes("E2 E1 06 30 41 42 43 44 45 E2 E1 06 31 41 42 43 44 45 "
                                   "E2 E1 06 34 41 42 43 44 45 E2 E1 06 36 41 42 43 44 45") +
                             line),
              Lines{"AABCDABCDEx\r\n"})
        << "counts of 0, 1, 4 and 6";
    EXPECT_EQ(Console().Take(Bytes("00 E5 06 3A 41 42 43 44 45 FF E1 06 3F 41 42 43 44 45")),
              Lines{"AB\r\n"})
        << "any first byte, any channel";
    EXPECT_EQ(Console().Take(Bytes("E2 E1 06 C5 41 42 43 44 45 E2 E1 06 87 41 42 43 44 45") + line),
              Lines{"x\r\n"})
        << "frames without text";
    for (const char* piece : {"E2 E1 06 35 41", "E2 E1 06", "E2 E1", "E2"})
        EXPECT_EQ(Console().Take(line + Bytes(piece)), Lines{"x\r\n"}) << piece;
}

TEST(ConsoleLines, ContinueInNextMessageEvenAfterBadFrame)
{
    const std::string half(500, 'h');
    Console console;

    EXPECT_EQ(console.Take(Frames({"a"}) + Begun(half)), Lines{"a\r\n"});
    EXPECT_EQ(console.Take(Begun("middle")), Lines{});
    EXPECT_EQ(console.Take(Frames({half, "b"})), (Lines{half + "middle" + half + "\r\n", "b\r\n"}));
    EXPECT_EQ(console.Take(Frames({"lost"}) + Begun("kept") + Bytes("E2 E0 06 31")), Lines{"bad"});
    EXPECT_EQ(console.Take(Bytes("E2 E1 05 31")), Lines{"bad"});
    EXPECT_EQ(console.Take(Frames({"", "OK 90042000"})), (Lines{"kept\r\n", "OK 90042000\r\n"}));
}

TEST(ConsoleLines, AreCutAt1021BytesAndLimitedToCallersTable)
{
    const std::string longest(1021, 'x');
    Console console;
    EXPECT_EQ(console.Take(Frames({longest, longest + "tail", "short"})),
              (Lines{longest + "\r\n", longest + "\r\n", "short\r\n"}));
    EXPECT_EQ(console.Take(Frames({"1", "2", "3"}) + Begun("begun"), 2), (Lines{"1\r\n", "2\r\n"}));
    EXPECT_EQ(console.Take(Frames({" on"})), Lines{"begun on\r\n"}) << "without the dropped line";
    EXPECT_EQ(console.Take(Frames(Lines(910)) + MidiPeer::kHead, TMidiCom::kMaxLines),
              Lines(910, "\r\n"));
}
