// The link to the MIDI Patcher: connecting, frames out, messages in, and the lines in messages.

#include <csignal>
#include <future>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "MidiPeer.h"
#include "TMidiCom.h"
#include "TempDir.h"

namespace {

using Lines = std::vector<std::string>;

const unsigned char kGroup[] = {0xBF, 0x66, 0x01, 0x00};
const std::string kEndFrame = Bytes("00 E1 06 37 00 00 00 00 00");
const std::string kEnd = MidiPeer::Stuff(kEndFrame);

// A link that is up, and the MIDI Patcher at its other end.
struct MidiLink {
    explicit MidiLink(int connecttype = 225)
    {
        midi.Set_connecttype(connecttype);
        EXPECT_GE(midi.SetMidiDescriptor(path.c_str()), 0);
        EXPECT_TRUE(patcher.Accept());
    }

    // A frame in either direction.
    bool Write(bool asText)
    {
        return asText ? midi.WriteConsole(0, "STATUS", 6) : midi.WriteMidi(0, kGroup);
    }
    // One message, or the result of a read without one. The rest of the buffer stays as it is.
    std::string Read()
    {
        std::string buffer(TMidiCom::kMaxMessage, 'u');
        const int result = midi.ReadMessage(buffer.data());
        if (result <= 0)
            return std::to_string(result);
        EXPECT_EQ(buffer.find_first_not_of('u', result), std::string::npos);
        return buffer.substr(0, result);
    }
    // What the link reads from now on, a piece at a time. Its peer closes after the last one.
    void SendInPieces(const Lines& pieces) const
    {
        const Peer peer(SOCK_SEQPACKET);
        const UniqueFd end(peer.Other());
        dup2(end.Get(), midi.GetMidiDescriptor());
        for (const std::string& piece : pieces)
            peer.Send(piece);
    }

    TempDir dir;
    std::string path{dir.Path("patcher")};
    MidiPeer patcher{path};
    TMidiCom midi;
};

// The frames of a line without its end.
std::string Begun(const std::string& text)
{
    const std::string frames = Frames({text});
    return frames.substr(0, frames.size() - 9);
}

// The lines of a message, or "bad" for a bad frame. A byte that would end a line follows each
// message, so that a read past the end shows.
Lines TakeLines(TMidiCom& midi, const std::string& message, std::size_t capacity = 100)
{
    std::string bytes = message + '7';
    std::vector<char*> lines(capacity);
    const int count = midi.ToConsole2(bytes.data(), static_cast<int>(message.size()), lines.data(),
                                      static_cast<int>(capacity));
    return count < 0 ? Lines{"bad"} : Lines{lines.begin(), lines.begin() + count};
}

}  // namespace

TEST(MidiLink, SendsConnectSequenceGroupsAndTextsInStuffedFrames)
{
    const unsigned char groups[][4] = {
        {0x6C, 0x01, 0x7F, 0xFF}, {0xBF, 0x66, 0x01, 0x02}, {0xFE, 0xFF, 0xFE, 0xFE}};
    MidiLink link;
    TMidiCom& midi = link.midi;
    EXPECT_TRUE(midi.Connect_i2cserver() && midi.WriteMidi(1, groups[0]));
    EXPECT_TRUE(midi.WriteMidi(-1, groups[1]) && midi.WriteMidi(0, groups[2]));
    EXPECT_TRUE(link.Write(true) && midi.WriteConsole(0, "ABCDE", 5));
    EXPECT_TRUE(midi.WriteConsole(1, "\xFE\xFF", 2) && midi.WriteConsole(33, "", 0));
    EXPECT_EQ(ToHex(link.patcher.Received()),
              "FE E1 E2 E0 E1 06 80 FF 6C 01 7F 00 FE FF "
              "E2 E0 E1 06 34 02 BF 66 01 00 FE FF "
              "E2 E0 E1 06 C0 FE FE FE FE FF FE FE 00 FE FF "
              "E2 E0 E1 06 35 53 54 41 54 55 FE FF E2 E0 E1 06 31 53 00 00 00 00 FE FF "
              "E2 E0 E1 06 37 00 00 00 00 00 FE FF "
              "E2 E0 E1 06 35 41 42 43 44 45 FE FF E2 E0 E1 06 37 00 00 00 00 00 FE FF "
              "E2 E0 E1 06 3A FE FE FF 00 00 00 FE FF E2 E0 E1 06 3F 00 00 00 00 00 FE FF "
              "E2 E0 E1 06 3F 00 00 00 00 00 FE FF");
    char plain[] = "kept";
    EXPECT_EQ(midi.Change_i2c2bin("x", plain, 0), 0);
    EXPECT_STREQ(plain, "kept");
    EXPECT_EQ(midi.Change_bin2i2c("x", plain, 0), 2) << "only the end of a block";

    const std::string text(8194, 't');
    const std::size_t before = link.patcher.Received().size();
    EXPECT_FALSE(midi.WriteConsole(0, text.data(), 8194));
    EXPECT_EQ(link.patcher.Received().size(), before) << "nothing of a text that is too long";
    auto sent =
        std::async(std::launch::async, [&] { return midi.WriteConsole(0, text.data(), 8193); });
    EXPECT_TRUE(link.patcher.WaitForLine(text.substr(1)) && sent.get());
}

TEST(MidiLink, ClosesOnFailedFrameWithoutSignalAndCanBeReopened)
{
    std::signal(SIGPIPE, SIG_DFL);
    const auto descriptors = ListDescriptors();
    for (const int type : {0, 226, 481, 225}) {  // the last is a peer that exists
        for (const bool asText : {false, true}) {
            SCOPED_TRACE(testing::Message() << type << ' ' << asText);
            MidiLink link(type);
            if (type == 225)
                link.patcher.Close();
            EXPECT_FALSE(link.midi.Connect_i2cserver());
            EXPECT_GE(link.midi.GetMidiDescriptor(), 0) << "the first frame closes it";
            EXPECT_FALSE(link.Write(asText));
            EXPECT_EQ(link.midi.GetMidiDescriptor(), -1);
            EXPECT_TRUE(link.patcher.IsClosed());

            link.midi.Set_connecttype(225);
            EXPECT_FALSE(link.Write(asText) || link.midi.Connect_i2cserver());
            EXPECT_EQ(link.midi.SetMidiDescriptor(link.dir.Path("missing").c_str()), -1);
            EXPECT_GE(link.midi.SetMidiDescriptor(link.path.c_str()), 0);
            EXPECT_TRUE(link.Write(asText));
        }
    }
    EXPECT_EQ(ListDescriptors(), descriptors);
}

TEST(MidiLink, WorksWithDescriptorZeroAndTracesStartAndEnd)
{
    const UniqueFd input(dup(STDIN_FILENO));
    testing::internal::CaptureStdout();
    {
        MidiLink link(229);
        close(link.midi.GetMidiDescriptor());
        close(STDIN_FILENO);
        EXPECT_EQ(link.midi.SetMidiDescriptor(link.path.c_str()), 0);
        EXPECT_TRUE(link.patcher.Accept());
        EXPECT_TRUE(link.midi.Connect_i2cserver() && link.Write(false) && link.Write(true));
        link.patcher.Send(kEnd);
        char buffer[TMidiCom::kMaxMessage];
        char* line = nullptr;
        EXPECT_EQ(link.midi.ReadConsoleMessage2(buffer, &line, 1), 1);
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "it is closed";
    dup2(input.Get(), STDIN_FILENO);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Init Midicom\nMIDI Alive\nMIDI Alive\nRcv message\nDelete Midicom\n");
}

TEST(MidiMessage, IsGatheredUpToEndFrame)
{
    const std::string text = Bytes("FE E5 06 C0 FE FC 06 FE FE");
    const std::string escapes = Bytes("00 E1 06 CF 01 02 03 FE FF");
    const std::string shortest = Bytes("37 00 00 00 00 00");
    const std::string wire = MidiPeer::Stuff(text) + kEnd;
    Lines pieces = {MidiPeer::Stuff(text), kEnd, MidiPeer::Stuff(escapes),
                    MidiPeer::Stuff(shortest), kEnd + wire};
    for (std::size_t at = 0; at < wire.size(); at += pieces.back().size())
        pieces.push_back(wire.substr(at, wire[at] == '\xFE' ? 2 : 1));  // pairs stay together
    MidiLink link;
    link.SendInPieces(pieces);

    EXPECT_EQ(ToHex(link.Read()), ToHex(text + kEndFrame));
    EXPECT_EQ(ToHex(link.Read()), ToHex(escapes)) << "any kind of end";
    EXPECT_EQ(ToHex(link.Read()), ToHex(shortest));
    EXPECT_EQ(ToHex(link.Read()), ToHex(kEndFrame + text + kEndFrame)) << "two in one read";
    EXPECT_EQ(ToHex(link.Read()), ToHex(text + kEndFrame)) << "byte by byte";
}

TEST(MidiMessage, IsDroppedAbove8193BytesOr4TimesThatOnSocket)
{
    const std::string longest = std::string(8193 - 9, 'x') + kEndFrame;
    std::string ends;  // of blocks add nothing, so the count of gathered bytes isn't enough
    while (ends.size() < 8192)
        ends += "\xFE\xFF\xFE\xFE";  // four bytes for one
    MidiLink link;
    link.SendInPieces({longest.substr(0, 100), longest.substr(100), "x", longest, kEnd, ends, ends,
                       ends, ends, "\xFE\xFF", "\xFE\xFF", "x", kEnd});
    EXPECT_EQ(link.Read(), longest);
    EXPECT_EQ(link.Read(), "-1");
    EXPECT_EQ(link.Read(), kEndFrame) << "the link is up, and nothing was kept";
    EXPECT_EQ(link.Read(), "-1");
    EXPECT_EQ(link.Read(), kEndFrame);
}

TEST(MidiMessage, IsDroppedWhenPeerClosesMidway)
{
    MidiLink link;
    EXPECT_TRUE(link.Write(false));
    link.patcher.Close();
    EXPECT_EQ(link.Read(), "-1") << "the peer has gone with unread bytes";
    EXPECT_GE(link.midi.GetMidiDescriptor(), 0);
    link.SendInPieces({"parts"});
    EXPECT_EQ(link.Read(), "0");
    EXPECT_EQ(link.midi.GetMidiDescriptor(), -1);
    EXPECT_EQ(link.Read(), "-1") << "the link is down";
}

TEST(ConsoleLines, ConsistOfTextThatFramesAnnounce)
{
    const std::string line = Frames({"x"});
    const std::pair<std::string, const char*> rows[] = {
        // Counts of 0, 1, 4 and 6.
        {Bytes("E2 E1 06 30 41 42 43 44 45 E2 E1 06 31 41 42 43 44 45 "
               "E2 E1 06 34 41 42 43 44 45 E2 E1 06 36 41 42 43 44 45") +
             line,
         "AABCDABCDEx\r\n"},
        // Any first byte, any channel.
        {Bytes("00 E5 06 3A 41 42 43 44 45 FF E1 06 3F 41 42 43 44 45"), "AB\r\n"},
        // Frames without text, and cut ones.
        {Bytes("E2 E1 06 C5 41 42 43 44 45 E2 E1 06 87 41 42 43 44 45") + line, "x\r\n"},
        {line + Bytes("E2 E1 06 35 41"), "x\r\n"},
        {line + Bytes("E2 E1 06"), "x\r\n"},
        {line + Bytes("E2 E1"), "x\r\n"},
        {line + Bytes("E2"), "x\r\n"},
    };
    for (const auto& [message, text] : rows) {
        TMidiCom midi;
        EXPECT_EQ(TakeLines(midi, message), Lines{text}) << ToHex(message);
    }
}

TEST(ConsoleLines, ContinueInNextMessageEvenAfterBadFrame)
{
    const std::string half(500, 'h');
    TMidiCom midi;
    const std::string cut = Bytes("E2 E1 06 35 2B");  // announces 5 bytes, and has a "+"
    EXPECT_EQ(TakeLines(midi, Frames({"a"}) + Begun(half) + cut), Lines{"a\r\n"});
    EXPECT_EQ(TakeLines(midi, Begun("middle")), Lines{});
    EXPECT_EQ(TakeLines(midi, Frames({half, "b"})),
              (Lines{half + "+middle" + half + "\r\n", "b\r\n"}));
    EXPECT_EQ(TakeLines(midi, Frames({"lost"}) + Begun("kept") + Bytes("E2 E0 06 31")),
              Lines{"bad"});
    EXPECT_EQ(TakeLines(midi, Bytes("E2 E1 05 31")), Lines{"bad"});
    EXPECT_EQ(TakeLines(midi, Frames({"", "OK"})), (Lines{"kept\r\n", "OK\r\n"}));
}

TEST(ConsoleLines, AreCutAt1021BytesAndLimitedToCallersTable)
{
    const std::string longest(1021, 'x');
    TMidiCom midi;
    EXPECT_EQ(TakeLines(midi, Frames({longest, longest + "tail", "short"})),
              (Lines{longest + "\r\n", longest + "\r\n", "short\r\n"}));
    EXPECT_EQ(TakeLines(midi, Frames({"1", "2", "3"}) + Begun("begun"), 2),
              (Lines{"1\r\n", "2\r\n"}));
    EXPECT_EQ(TakeLines(midi, Frames({" on"})), Lines{"begun on\r\n"}) << "not the dropped line";
    EXPECT_EQ(TakeLines(midi, Frames(Lines(910)) + MidiPeer::kHead, TMidiCom::kMaxLines),
              Lines(910, "\r\n"));
}
