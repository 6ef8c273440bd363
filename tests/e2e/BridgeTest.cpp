// The idle server as a bridge between the controller and the piano's side, with peers that send
// anything and disconnect at any time.

#include <chrono>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "Scene.h"

TEST(Bridge, ForwardsGroupsToPianoUnlessCommands)
{
    const struct {
        const char* name;
        const char* groups;  // of one read
        const char* frames;
        const char* replies;
    } rows[] = {
        {"seven bytes", "90 3C 40 02 91 3D 41", "C0 02 90 3C 40 00\n", ""},
        {"the rest of a group that was cut", "03 90 3C 40", "C0 40 03 90 3C 00\n", ""},
        {"the other kind before any command", "6C DF DF DF", "80 DF 6C DF DF 00\n", ""},
        {"nearly commands", "DF DF 00 C5 DF 00 00 AA DF DF DF E2 DE DF DF DF",
         "C0 C5 DF DF 00 00\nC0 AA DF 00 00 00\nC0 E2 DF DF DF 00\nC0 DF DE DF DF 00\n", ""},
        {"escape bytes", "FE FE FF FE", "C0 FE FE FE FF 00\n", ""},
        {"several", "6C 00 00 06 DF DF DF DF 90 3C 40 07 DF DF DF E1 80 3C 00 08",
         "80 06 6C 00 00 00\nC0 07 90 3C 40 00\nC0 08 80 3C 00 00\n", kServiceText},
    };
    ServerWithPeers bridge;
    bridge.Open();
    EXPECT_EQ(bridge.Ask("90 3C 40"), "");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(bridge.Ask(row.groups), row.replies);
        EXPECT_EQ(bridge.TakeFrames(), row.frames);
    }
}

TEST(Commands, MatchDocuments)
{
    ServerWithPeers bridge;
    bridge.Open();
    // A group that doesn't reach the piano is a command. The one that starts a read-back comes
    // last, since it shuts out later groups.
    std::set<std::string> commands{kReadParameters};
    std::string groups;
    for (const std::string third : {"00", "DF"})
        for (int fourth = 0; fourth < 256; ++fourth)
            commands.insert("DF DF " + third + " " +
                            ToHex(std::string(1, static_cast<char>(fourth))));
    for (const std::string& group : commands)
        groups += group == kReadParameters ? "" : group + " ";
    bridge.Send(groups);
    std::string frames;
    for (std::string some; !(some = bridge.TakeFrames()).empty();)
        frames += some;
    bridge.Send(kReadParameters);
    frames += bridge.TakeFrames();
    for (std::size_t at = 0; (at = frames.find("C0 ", at)) != std::string::npos; at += 3)
        commands.erase(frames.substr(at + 6, 9) + frames.substr(at + 3, 2));

    for (const std::string name : {"README.md", "docs/protocol.md", "packaging/diag_server.8"}) {
        std::ifstream file(std::string(DIAG_SOURCE) + "/" + name);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        std::set<std::string> listed;
        for (std::size_t at = 0; (at = text.find("DF DF ", at)) != std::string::npos; at += 6) {
            const std::string group = text.substr(at, 11);
            if (group.find_first_not_of("0123456789ABCDEF ") == std::string::npos)
                listed.insert(group);
        }
        EXPECT_EQ(listed, commands) << name;
    }
}

TEST(Bridge, ForwardsMessagesToControllerAsLinesOrBytes)
{
    const std::string marked = Frames({"abc"}, "\x60\x01\x02");
    const std::string longest = "\x61" + std::string(8186, 'x') + "\x37" + "12345";  // 8193 bytes
    const struct {
        const char* name;
        std::vector<std::string> messages;
        std::string replies;
    } rows[] = {
        {"lines of the other peer", {Frames({"de", "f"}, "\xE2\xE5\x06")}, "de\r\nf\r\n"},
        {"any text", {Frames({"a", "", "100%s%n", "%"})}, "a\r\n\r\n100%s%n\r\n%\r\n"},
        {"for the controller", {marked}, marked},
        {"not for the controller",
         {Frames({"x"}, "\x70\xE1\x06") + Frames({"y"}, "\x60\xE1\x06")},
         "x\r\ny\r\n"},
        {"the longest message", {longest}, longest},
    };
    ServerWithPeers bridge;
    bridge.Open();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (const std::string& message : row.messages)
            bridge.Say(message);
        EXPECT_EQ(bridge.TakeReplies(), row.replies);
    }
}

TEST(Bridge, SendsMessageBoxesToRcServerOrElseController)
{
    for (const bool isThere : {true, false}) {
        SCOPED_TRACE(isThere);
        ServerWithPeers bridge([isThere](Unit& unit) {
            if (!isThere)
                unit.Remove(kRCServerSocket);
        });
        bridge.Open();
        const std::string boxes = "<message_box>100%s\r\n<message_box\r\n";

        bridge.Say(Frames({"<message_box>100%s", "<message_box", "<message_bo", "b"}));

        EXPECT_EQ(bridge.TakeReplies(), (isThere ? "" : boxes) + "<message_bo\r\nb\r\n");
        EXPECT_EQ(bridge.rcServer.Received(), isThere ? boxes : "");
        bridge.rcServer.Close();
        bridge.Say(Frames({"<message_box"}));
        EXPECT_EQ(bridge.TakeReplies(), "<message_box\r\n");
    }
}

TEST(MidiPatcher, IsReconnectedAtTimeout)
{
    ServerWithPeers bridge;
    bridge.Open();
    const std::string path = bridge.unit.Path(kMidiPatcherSocket);
    const std::string tried = "Trying to Connect MIDI Patcher...\n";
    std::filesystem::rename(path, path + ".gone");
    const auto begin = UnitTime();

    bridge.patcher.Close();
    EXPECT_TRUE(bridge.unit.WaitForLog("MIDI Patcher is dead.\n"));
    bridge.Send("90 3C 40 01 DF DF DF DF 6C 3C 40 01");
    EXPECT_TRUE(bridge.controller->WaitFor(kServiceText));
    EXPECT_TRUE(WaitUntil([&] { return Count(bridge.unit.Log(), "is dead.\n") == 2; }));
    EXPECT_EQ(UnitTime() - begin, std::chrono::seconds(20));
    const std::size_t before = bridge.patcher.Received().size();
    std::filesystem::rename(path + ".gone", path);

    ASSERT_TRUE(bridge.patcher.Accept());
    bridge.Ask("90 3C 40 02");
    EXPECT_EQ(bridge.TakeFrames(), "C0 02 90 3C 40 00\n");
    // The peer was named once, at the start.
    EXPECT_EQ(ToHex(bridge.patcher.Received()).substr(3 * before, 11), "E2 E0 E1 06");
    EXPECT_EQ(bridge.TakeLog(), tried + "MIDI Patcher is dead.\nUpdate the Service Center.\n" +
                                    tried + "MIDI Patcher is dead.\n" + tried +
                                    "Connected to MIDI Patcher\n");
}

TEST(VersionRequest, KeepsReplyModeOfEarlierController)
{
    constexpr char kServiceLog[] = "Update the Service Center.\n";
    const std::string tooLong(2000, 'v');
    const struct {
        std::string file;  // empty: none
        const char* groups;
        std::string replies;
        std::string log;
    } rows[] = {
        {"1.00\n", "DF DF DF DF", kServiceText, kServiceLog},
        {"2.0 %s\r\nsecond\n", "DF DF DF E0 DF DF DF DF", "2.0 %s\r\n", "2.0 %s\r\n"},
        {"", "DF DF DF DF", "", ""},
        {"1.00\n", "DF DF DF E1 DF DF DF DF", kServiceText, kServiceLog},
        {tooLong, "DF DF DF E0 DF DF DF DF", std::string(1023, 'v'), std::string(1023, 'v')},
    };
    ServerWithPeers bridge;
    bridge.Open();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file.substr(0, 20) + " " + row.groups);
        bridge.Connect();
        bridge.unit.Remove(kReleaseFile);
        if (!row.file.empty())
            bridge.unit.Write(kReleaseFile, row.file);

        EXPECT_EQ(bridge.Ask(row.groups), row.replies);
        EXPECT_EQ(bridge.TakeLog(), row.log);
    }
}

TEST(Controllers, ReplaceEachOtherAndMayDisconnectAnytime)
{
    ServerWithPeers bridge;
    bridge.Open();
    const std::string id = std::to_string(bridge.server->Id());
    const auto descriptors = ListDescriptors(id);

    const std::unique_ptr<Controller> first = bridge.Connect();
    EXPECT_TRUE(first->WaitForClose());
    EXPECT_EQ(bridge.Ask(kVersion), kServiceText);
    EXPECT_EQ(ListDescriptors(id), descriptors) << "the number was free again";

    // All groups of a controller that hangs up are carried out.
    bridge.Send("DF DF DF DF DF DF DF DF DF DF DF DF 90 3C 40 01");
    bridge.controller->Close();
    bridge.Connect();
    EXPECT_EQ(bridge.TakeFrames(), "C0 01 90 3C 40 00\n");
    bridge.controller->Reset();
    bridge.Connect();
    EXPECT_EQ(bridge.Ask(kVersion), kServiceText);

    // While the server waits for the rest of a message, one controller leaves and another connects.
    // A read from the new one, which has sent nothing yet, would never end.
    const std::string message = Frames({"Hello"});
    const auto begin = UnitTime();
    bridge.SayBytes(message.substr(0, 9));
    bridge.controller->Close();
    bridge.Connect();
    bridge.Send(kVersion);
    EXPECT_TRUE(bridge.controller->WaitFor(kServiceText));
    EXPECT_EQ(UnitTime() - begin, std::chrono::seconds(5));
    bridge.SayBytes(message.substr(9));
    EXPECT_EQ(bridge.TakeReplies(), std::string(kServiceText) + "\r\n");
    EXPECT_EQ(ListDescriptors(id), descriptors);

    // No connection is left that wakes the loop again and again.
    bridge.controller->Close();
    const auto closed = UnitTime();
    const auto countPasses = [&] { return Count(bridge.server->Output(), "Update Status()\n"); };
    EXPECT_TRUE(WaitUntil([&, passes = countPasses()] { return countPasses() >= passes + 4; }));
    EXPECT_GE(UnitTime() - closed, std::chrono::seconds(10));
}

TEST(Gate, DropsGroupsAndMessageBoxesDuringReadBack)
{
    const std::string message = Frames({"abc"}, "\x60\xE1\x06");
    constexpr char kFlashMode[] = "C0 7F BF 00 00 00\nC0 00 BF 66 01 00\n";
    ServerWithPeers bridge;
    bridge.TakeReplies();
    bridge.TakeFrames();

    bridge.Send("DF DF DF DF DF DF DF E0 90 3C 40 00 6C 01 02 03 DF DF 00 C3");
    bridge.Say(Frames({"<message_box"}));
    bridge.Say(message);

    EXPECT_TRUE(bridge.controller->WaitFor(message));
    EXPECT_EQ(bridge.TakeReplies(), "Connecting to CSP\n" + message);
    EXPECT_EQ(bridge.TakeFrames(), kFlashMode);
    EXPECT_EQ(bridge.rcServer.Received(), "");

    bridge.Open();
    bridge.Send("DF DF DF DF DF DF 00 C0 DF DF DF DF 90 3C 40 00");
    EXPECT_TRUE(bridge.unit.WaitForLog("CSP Read status Inc.\n"));
    EXPECT_EQ(bridge.TakeReplies(), std::string(kServiceText) + "Connecting to CSP\n");
    EXPECT_EQ(bridge.TakeFrames(), kFlashMode);
    EXPECT_EQ(bridge.TakeLog(), "Update the Service Center.\nStart Reading CSP Parameters\n"
                                "CSP Read status Inc.\n");
}
