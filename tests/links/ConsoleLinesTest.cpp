// Frames of the console turned into lines of text.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Bytes.h"
#include "Calls.h"

namespace {

using Lines = std::vector<std::string>;

// The frames of whole lines.
std::string Frames(const Lines& lines)
{
    std::string frames;
    for (const std::string& line : lines)
        for (const std::string& frame : Patcher::ConsoleFrames(line, Patcher::kHead))
            frames += frame;
    return frames;
}

// The frames of a line without its end.
std::string Begun(const std::string& text)
{
    const std::string frames = Frames({text});
    return frames.substr(0, frames.size() - 9);
}

// The link, fed with messages of exactly their size, so that a byte too far shows. Gives the lines,
// or "bad" for a bad frame.
class Console {
public:
    Lines Take(const std::string& message, int capacity = 100)
    {
        std::vector<char> bytes(message.begin(), message.end());
        std::vector<char*> lines(static_cast<std::size_t>(capacity));
        const int count =
            midi.ToConsole2(bytes.data(), static_cast<int>(bytes.size()), lines.data(), capacity);
        return count < 0 ? Lines{"bad"} : Lines{lines.begin(), lines.begin() + count};
    }

private:
    TMidiCom midi;
};

}  // namespace

TEST(ConsoleLines, AreMadeOfTheTextThatEachFrameAnnounces)
{
    const struct {
        const char* name;
        std::string message;
        Lines lines;
    } cases[] = {
        {"one line", Frames({"Status:Flash Idle"}), {"Status:Flash Idle\r\n"}},
        {"several", Frames({"OK 90042000", "", "END"}), {"OK 90042000\r\n", "\r\n", "END\r\n"}},
        {"counts of 0, 1, 4 and 6",
         Bytes("E2 E1 06 30 41 42 43 44 45 E2 E1 06 31 41 42 43 44 45 "
               "E2 E1 06 34 41 42 43 44 45 E2 E1 06 36 41 42 43 44 45") +
             Frames({""}),
         {"AABCDABCDE\r\n"}},
        {"any first byte, either peer, any channel",
         Bytes("00 E5 06 3A 41 42 43 44 45 FF E1 06 3F 41 42 43 44 45"),
         {"AB\r\n"}},
        {"frames that are no text",
         Bytes("E2 E1 06 C5 41 42 43 44 45 E2 E1 06 87 41 42 43 44 45") + Frames({"x"}),
         {"x\r\n"}},
        {"a frame that is cut", Frames({"x"}) + Bytes("E2 E1 06 35 41"), {"x\r\n"}},
        {"a frame's first two bytes", Frames({"x"}) + Bytes("E2 E1"), {"x\r\n"}},
        {"nothing", "", {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Console().Take(c.message), c.lines) << c.name;
}

TEST(ConsoleLines, EndAtAFrameThatIsNoneAndKeepWhatHasBegun)
{
    for (const char* bad : {"E2 E0 06 31", "E2 E2 06 31", "E2 E4 06 C0", "E2 E6 06 31",
                            "E2 E1 05 31", "E2 E5 07 C0"}) {
        Console console;
        EXPECT_EQ(console.Take(Frames({"lost"}) + Begun("kept") + Bytes(bad)), Lines{"bad"}) << bad;
        EXPECT_EQ(console.Take(Frames({"", "x"})), (Lines{"kept\r\n", "x\r\n"})) << bad;
    }
}

TEST(ConsoleLines, GoOnInTheNextMessageAndNeverOvertakeItsFrames)
{
    const std::string half(500, 'h');
    Console console;

    EXPECT_EQ(console.Take(Frames({"a"}) + Begun(half)), Lines{"a\r\n"});
    EXPECT_EQ(console.Take(Begun("middle")), Lines{});
    EXPECT_EQ(console.Take(Frames({half, "b"})), (Lines{half + "middle" + half + "\r\n", "b\r\n"}));
    EXPECT_EQ(console.Take(Begun(half)), Lines{});
    EXPECT_EQ(console.Take(Frames({"", "OK 90042000"})), (Lines{half + "\r\n", "OK 90042000\r\n"}));
}

TEST(ConsoleLines, AreCutAt1021BytesAndAtTheCallersTable)
{
    const std::string longest(1021, 'x');
    const std::string message = Frames(Lines(910)) + Patcher::kHead;  // 8193 bytes
    Console console;
    EXPECT_EQ(console.Take(Frames({longest, longest + "tail", "short"})),
              (Lines{longest + "\r\n", longest + "\r\n", "short\r\n"}));
    EXPECT_EQ(console.Take(Frames({"1", "2", "3"}) + Begun("begun"), 2), (Lines{"1\r\n", "2\r\n"}));
    EXPECT_EQ(console.Take(Frames({" on"})), Lines{"begun on\r\n"}) << "without the line dropped";
    for (const int capacity : {TMidiCom::kMaxLines, 100, 0})
        EXPECT_EQ(console.Take(message, capacity),
                  Lines(static_cast<std::size_t>(capacity), "\r\n"));
}

TEST(ConsoleLines, AreReadFromTheLinkInOneCall)
{
    char message[TMidiCom::kMaxMessage];
    char* lines[2] = {};
    MidiLink link;
    link.patcher.SendLines({"WR:90042000", "END"});

    EXPECT_EQ(link.midi.ReadConsoleMessage2(message, lines, 2), 2);
    EXPECT_STREQ(lines[0], "WR:90042000\r\n");
    EXPECT_STREQ(lines[1], "END\r\n");
    EXPECT_EQ(link.midi.ReadConsoleMessage2(message, lines, 2), -1) << "silence";
    link.patcher.Close();
    EXPECT_EQ(link.midi.ReadConsoleMessage2(message, lines, 2), 0);
}
