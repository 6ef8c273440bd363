// The link to the MIDI Patcher: connecting, frames out, messages in.

#include <csignal>
#include <future>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Bytes.h"
#include "Calls.h"
#include "Descriptors.h"

namespace {

const unsigned char kGroup[] = {0xBF, 0x66, 0x01, 0x00};
const std::string kEndFrame = Bytes("00 E1 06 37 00 00 00 00 00");
const std::string kEnd = Patcher::Stuffed(kEndFrame);

// A frame of either form.
bool Write(TMidiCom& midi, bool asText)
{
    return asText ? midi.WriteConsole(0, "STATUS", 6) : midi.WriteMidi(0, kGroup);
}

}  // namespace

TEST(MidiLink, SendsAConnectSequenceAndGroupsInStuffedFrames)
{
    const struct {
        int connecttype;
        int kind;
        const char* group;
        const char* sent;
    } cases[] = {
        {225, 0, "BF 66 01 00", "FE E1 E2 E0 E1 06 C0 00 BF 66 01 00 FE FF"},
        {229, 0, "01 02 03 04", "FE E5 E2 E0 E5 06 C0 04 01 02 03 00 FE FF"},
        {225, 1, "6C 00 7F FF", "FE E1 E2 E0 E1 06 80 FF 6C 00 7F 00 FE FF"},
        {225, -1, "BF 66 01 00", "FE E1 E2 E0 E1 06 34 00 BF 66 01 00 FE FF"},
        {225, 0, "FE FF FE FE", "FE E1 E2 E0 E1 06 C0 FE FE FE FE FF FE FE 00 FE FF"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.sent);
        MidiLink link(c.connecttype);
        const std::string group = Bytes(c.group);

        EXPECT_TRUE(link.midi.Connect_i2cserver());
        EXPECT_TRUE(
            link.midi.WriteMidi(c.kind, reinterpret_cast<const unsigned char*>(group.data())));

        EXPECT_EQ(ToHex(link.patcher.Received()), c.sent);
    }
}

TEST(MidiLink, PrintsItsBeginItsOpeningAndItsEnd)
{
    testing::internal::CaptureStdout();
    {
        const MidiLink link;
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Init Midicom\nMIDI Alive\nDelete Midicom\n");
}

TEST(MidiLink, SendsTextInFramesOfFiveAndAnEndFrame)
{
    const std::string end = "E2 E0 E1 06 37 00 00 00 00 00 FE FF";
    const std::string endOfChannel1 = "E2 E0 E1 06 3F 00 00 00 00 00 FE FF";
    const struct {
        unsigned char channel;
        std::string text;
        std::string frames;
    } cases[] = {
        {0, "STATUS",
         "E2 E0 E1 06 35 53 54 41 54 55 FE FF E2 E0 E1 06 31 53 00 00 00 00 FE FF " + end},
        {0, "ABCDE", "E2 E0 E1 06 35 41 42 43 44 45 FE FF " + end},
        {0, "", end},
        {1, "\xFE\xFF", "E2 E0 E1 06 3A FE FE FF 00 00 00 FE FF " + endOfChannel1},
        {33, "A", "E2 E0 E1 06 39 41 00 00 00 00 FE FF " + endOfChannel1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        MidiLink link;

        EXPECT_TRUE(
            link.midi.WriteConsole(c.channel, c.text.data(), static_cast<int>(c.text.size())));

        EXPECT_EQ(ToHex(link.patcher.Received()), c.frames);
    }
}

TEST(MidiLink, TakesTextOf8193BytesAndSendsNothingOfALongerOne)
{
    const std::string text(8194, 't');
    MidiLink link;

    EXPECT_FALSE(link.midi.WriteConsole(0, text.data(), 8194));
    EXPECT_EQ(link.patcher.Received(), "");

    auto sent = std::async(std::launch::async,
                           [&] { return link.midi.WriteConsole(0, text.data(), 8193); });
    EXPECT_TRUE(link.patcher.WaitForLine(text.substr(1)));
    EXPECT_TRUE(sent.get());
}

TEST(MidiLink, ClosesWhenAFrameWouldGoToAnUnknownPeer)
{
    for (const int type : {0, 224, 226, 228, 230, 481}) {
        SCOPED_TRACE(type);
        for (const bool asText : {false, true}) {
            MidiLink link(type);
            EXPECT_FALSE(link.midi.Connect_i2cserver());
            EXPECT_GE(link.midi.GetMidiDescriptor(), 0);

            EXPECT_FALSE(Write(link.midi, asText));

            EXPECT_EQ(link.midi.GetMidiDescriptor(), -1);
            EXPECT_TRUE(link.patcher.IsClosed());
            EXPECT_EQ(link.patcher.Received(), "");
        }
    }
}

TEST(MidiLink, ClosesOnAFailedFrameWithoutASignalAndCanBeOpenedAgain)
{
    std::signal(SIGPIPE, SIG_DFL);
    const auto descriptors = OpenDescriptors();
    for (const bool asText : {false, true}) {
        MidiLink link;
        link.patcher.Close();
        EXPECT_FALSE(link.midi.Connect_i2cserver());
        EXPECT_GE(link.midi.GetMidiDescriptor(), 0) << "the first frame closes, not the sequence";
        EXPECT_FALSE(Write(link.midi, asText));
        EXPECT_EQ(link.midi.GetMidiDescriptor(), -1);

        EXPECT_FALSE(Write(link.midi, asText));
        EXPECT_FALSE(link.midi.Connect_i2cserver());
        EXPECT_EQ(link.midi.SetMidiDescriptor(link.dir.Path("nobody").c_str()), -1);
        EXPECT_GE(link.midi.SetMidiDescriptor(link.path.c_str()), 0);
        EXPECT_TRUE(Write(link.midi, asText));
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(MidiMessage, IsGatheredUpToAFrameThatEndsIt)
{
    const std::string text = Bytes("FE E5 06 C0 FE FC 06 FE FE");
    const std::string escapes = Bytes("00 E1 06 CF 01 02 03 FE FF");
    const std::string stuffed = Patcher::Stuffed(text);
    const std::string wire = stuffed + kEnd;
    std::deque<std::string> dribbled;
    for (std::size_t at = 0; at < wire.size(); at += dribbled.back().size())
        dribbled.push_back(wire.substr(at, wire[at] == '\xFE' ? 2 : 1));  // pairs stay together
    const struct {
        const char* name;
        std::deque<std::string> pieces;
        std::string message;
    } cases[] = {
        {"one read", {wire}, text + kEndFrame},
        {"a read a frame", {stuffed, kEnd}, text + kEndFrame},
        {"a cut frame", {wire.substr(0, 4), wire.substr(4)}, text + kEndFrame},
        {"byte by byte", dribbled, text + kEndFrame},
        {"any kind of end", {Patcher::Stuffed(escapes)}, escapes},
        {"two in one read", {kEnd + wire}, kEndFrame + text + kEndFrame},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MidiLink link;
        link.pieces = c.pieces;

        EXPECT_EQ(ToHex(ReadFrom(link.midi)), ToHex(c.message));

        link.pieces.push_back(kEnd);
        EXPECT_EQ(ReadFrom(link.midi), kEndFrame) << "nothing is left to spoil the next one";
    }
}

TEST(MidiMessage, Holds8193BytesAndIsDroppedAboveThem)
{
    const std::string longest = std::string(8193 - 9, 'x') + kEndFrame;
    MidiLink link;
    link.pieces = {longest.substr(0, 100), longest.substr(100), "x", longest, kEnd};

    EXPECT_EQ(ReadFrom(link.midi), longest);
    EXPECT_EQ(ReadFrom(link.midi), "-1");
    EXPECT_EQ(ReadFrom(link.midi), kEndFrame) << "the link is up, and nothing was kept";
}

// Lone block ends hold nothing, so no count of gathered bytes would ever end them.
TEST(MidiMessage, IsDroppedWhenItIsBlockEndsWithoutEnd)
{
    constexpr int kReads = 4 * 8193 / 2 + 1;
    MidiLink link;
    link.pieces.assign(kReads, "\xFE\xFF");
    link.pieces.push_back(kEnd);

    EXPECT_EQ(ReadFrom(link.midi), "-1");
    EXPECT_EQ(ReadFrom(link.midi), kEndFrame);
}

TEST(MidiMessage, IsDroppedWhenItStopsInTheMiddle)
{
    MidiLink link;
    link.pieces = {"part"};
    EXPECT_EQ(ReadFrom(link.midi), "-1") << "silence";
    EXPECT_EQ(calls.waited, 5);

    link.patcher.Send("part");
    calls.selectFails = true;
    EXPECT_EQ(ReadFrom(link.midi), "-1");
    calls.selectFails = false;

    EXPECT_TRUE(link.midi.WriteMidi(0, kGroup));
    link.patcher.Close();
    EXPECT_EQ(ReadFrom(link.midi), "-1") << "the peer has gone with unread bytes";
    EXPECT_GE(link.midi.GetMidiDescriptor(), 0);
    EXPECT_EQ(ReadFrom(link.midi), "0") << "now it has closed";
    EXPECT_EQ(link.midi.GetMidiDescriptor(), -1);
    EXPECT_EQ(ReadFrom(link.midi), "-1") << "the link is down";
}
