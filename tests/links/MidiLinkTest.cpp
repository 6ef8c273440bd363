// The link to the MIDI Patcher: connecting, frames out, messages in.

#include <csignal>
#include <future>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "HexText.h"
#include "MidiPeer.h"
#include "TMidiCom.h"
#include "TempDir.h"
#include "UniqueFd.h"

namespace {

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
    // One message, or the result of a read without one.
    std::string Read()
    {
        std::string buffer(TMidiCom::kMaxMessage, 'u');
        const int result = midi.ReadMessage(buffer.data());
        return result > 0 ? buffer.substr(0, static_cast<std::size_t>(result))
                          : std::to_string(result);
    }
    // What the link reads from now on, a piece at a time. Its peer closes after the last one.
    void SendInPieces(const std::vector<std::string>& pieces) const
    {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        const UniqueFd near(ends[0]);
        const UniqueFd far(ends[1]);
        dup2(near.Get(), midi.GetMidiDescriptor());
        for (const std::string& piece : pieces)
            send(far.Get(), piece.data(), piece.size(), 0);
    }

    TempDir dir;
    std::string path{dir.Path("patcher")};
    MidiPeer patcher{path};
    TMidiCom midi;
};

}  // namespace

TEST(MidiLink, SendsConnectSequenceGroupsAndTextsInStuffedFrames)
{
    const unsigned char groups[][4] = {
        {0x6C, 0x01, 0x7F, 0xFF}, {0xBF, 0x66, 0x01, 0x02}, {0xFE, 0xFF, 0xFE, 0xFE}};
    MidiLink link;
    EXPECT_TRUE(link.midi.Connect_i2cserver());
    EXPECT_TRUE(link.midi.WriteMidi(1, groups[0]));
    EXPECT_TRUE(link.midi.WriteMidi(-1, groups[1]));
    EXPECT_TRUE(link.midi.WriteMidi(0, groups[2]));
    EXPECT_TRUE(link.midi.WriteConsole(0, "STATUS", 6));
    EXPECT_TRUE(link.midi.WriteConsole(0, "ABCDE", 5));
    EXPECT_TRUE(link.midi.WriteConsole(1, "\xFE\xFF", 2));
    EXPECT_TRUE(link.midi.WriteConsole(33, "", 0));
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
    EXPECT_EQ(link.midi.Change_i2c2bin("x", plain, 0), 0);
    EXPECT_STREQ(plain, "kept");
    EXPECT_EQ(link.midi.Change_bin2i2c("x", plain, 0), 2) << "only the end of a block";
}

TEST(MidiLink, SendsTextOf8193BytesAndNothingOfLongerOne)
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
            EXPECT_FALSE(link.Write(asText));
            EXPECT_FALSE(link.midi.Connect_i2cserver());
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
    for (const bool breaks : {false, true}) {
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
            if (breaks)
                link.patcher.Close();
            EXPECT_EQ(link.Write(false), !breaks);
        }
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "it is closed";
        dup2(input.Get(), STDIN_FILENO);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "Init Midicom\nMIDI Alive\nMIDI Alive\nRcv message\nDelete Midicom\n");
    }
}

TEST(MidiMessage, IsGatheredUpToEndFrame)
{
    const std::string text = Bytes("FE E5 06 C0 FE FC 06 FE FE");
    const std::string escapes = Bytes("00 E1 06 CF 01 02 03 FE FF");
    const std::string shortest = Bytes("37 00 00 00 00 00");
    const std::string wire = MidiPeer::Stuff(text) + kEnd;
    std::vector<std::string> pieces = {MidiPeer::Stuff(text), kEnd, MidiPeer::Stuff(escapes),
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

TEST(MidiMessage, ContainsNothingOfEarlierOne)
{
    const std::string earlier = std::string(8193 - 9, 'x') + kEndFrame;
    const std::string cut = Bytes("E7 E1 06 35 41 42");  // looks complete and announces 5 bytes
    MidiLink link;
    link.SendInPieces({earlier, cut, kEnd});

    EXPECT_EQ(link.Read(), earlier);
    std::string buffer(TMidiCom::kMaxMessage, 'u');
    EXPECT_EQ(link.midi.ReadMessage(buffer.data()), 6);
    EXPECT_EQ(buffer, cut + std::string(8193 - 6, 'u'));
    char* lines[1];
    EXPECT_EQ(link.midi.ToConsole2(buffer.data(), 6, lines, 1), 0);
    EXPECT_EQ(link.midi.ReadConsoleMessage2(buffer.data(), lines, 1), 1);
    EXPECT_STREQ(lines[0], "AB\r\n");
}

TEST(MidiMessage, IsDroppedWhenPeerClosesMidway)
{
    MidiLink link;
    EXPECT_TRUE(link.Write(false));
    link.patcher.Close();
    EXPECT_EQ(link.Read(), "-1") << "the peer has gone with unread bytes";
    EXPECT_GE(link.midi.GetMidiDescriptor(), 0);
    link.SendInPieces({"part"});
    EXPECT_EQ(link.Read(), "0");
    EXPECT_EQ(link.midi.GetMidiDescriptor(), -1);
    EXPECT_EQ(link.Read(), "-1") << "the link is down";
}
