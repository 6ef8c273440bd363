// The idle server as a bridge between the controller and the piano's side, with peers that send
// anything and disconnect at any time.

#include <regex>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Scene.h"

TEST(Bridge, ForwardsGroupsToPianoUnlessCommands)
{
    const std::pair<const char*, std::string> rows[] = {
        {"90 3C 40", ""},
        {"90 3C 40 02 91 3D 41", "C0 02 90 3C 40 00\n"},
        // The rest of a group that was cut, and a group of the other kind that nearly is a command.
        {"03 90 3C 40", "C0 40 03 90 3C 00\n"},
        {"6C DF DF DF", "80 DF 6C DF DF 00\n"},
        {"FE FE FF FE", "C0 FE FE FE FF 00\n"},
        {"6C 00 00 06 DF DF DF DF 90 3C 40 07 DF DF DF E1 80 3C 00 08",
         kServiceText + std::string("80 06 6C 00 00 00\nC0 07 90 3C 40 00\nC0 08 80 3C 00 00\n"
                                    "Update the Service Center.\n")},
    };
    Scene bridge;
    bridge.OpenWithPeers();
    for (const auto& [groups, effects] : rows)
        EXPECT_EQ(bridge.Exchange(groups), effects) << groups;
}

// A group that doesn't reach the piano is a command. The one that starts a read-back isn't sent,
// since it shuts out later groups.
TEST(Commands, MatchDocument)
{
    Scene bridge;
    bridge.OpenWithPeers();
    std::set<std::string> commands{kReadParameters};
    for (const std::string start : {"DF DF 00 ", "DF DF DF "})
        for (int last = 0; last < 256; ++last) {
            const std::string sent = start + ToHex({static_cast<char>(last)});
            if (sent != kReadParameters && !Contains(bridge.Exchange(sent), "C0 "))
                commands.insert(sent);
        }

    const std::regex group("DF DF [0-9A-F]{2} [0-9A-F]{2}");
    const std::string text = ReadFile(DIAG_SOURCE "/docs/protocol.md");
    const std::set<std::string> listed{std::sregex_token_iterator(text.begin(), text.end(), group),
                                       {}};
    EXPECT_EQ(listed, commands);
}

TEST(Bridge, ForwardsMessagesToControllerAsLinesOrBytes)
{
    const std::string marked = Frames({"abc"}, "\x60\x01");  // for the controller
    const std::string longest = "\x61" + std::string(8186, 'x') + "\x37" + "12345";  // 8193 bytes
    const std::pair<std::string, std::string> rows[] = {
        {Frames({"lines of", "the other peer"}, "\xE2\xE5"), "lines of\r\nthe other peer\r\n"},
        {Frames({"a", "", "100%s%n", "%"}), "a\r\n\r\n100%s%n\r\n%\r\n"},
        {marked, marked},
        {Frames({"not"}, "\x70\xE1") + Frames({"marked"}, "\x60\xE1"), "not\r\nmarked\r\n"},
        {longest, longest},
    };
    Scene bridge;
    bridge.OpenWithPeers();
    for (const auto& [message, replies] : rows) {
        bridge.Say(message);
        EXPECT_EQ(bridge.TakeReplies(), replies);
    }
}

TEST(Bridge, SendsMessageBoxesToRcServerOrElseController)
{
    for (const bool isThere : {true, false}) {
        SCOPED_TRACE(isThere);
        Scene bridge;
        bridge.OpenWithPeers(kAnyPort, isThere ? "none" : kRCServerSocket);
        const std::string boxes = "<message_box>100%s\r\n<message_box\r\n";

        bridge.Say(Frames({"<message_box>100%s", "<message_box", "<message_bo", "b"}));

        EXPECT_EQ(bridge.TakeReplies(), (isThere ? "" : boxes) + "<message_bo\r\nb\r\n");
        EXPECT_EQ(bridge.rcServer->Received(), isThere ? boxes : "");
        bridge.rcServer->Close();
        bridge.Say(Frames({"<message_box"}));
        EXPECT_EQ(bridge.TakeReplies(), "<message_box\r\n");
    }
}

TEST(MidiPatcher, IsReconnectedAtTimeout)
{
    Scene bridge;
    bridge.OpenWithPeers();
    const std::string path = bridge.Path(kMidiPatcherSocket);
    const std::string tried = "Trying to Connect MIDI Patcher...\n";
    std::filesystem::rename(path, path + ".gone");
    const auto begin = UnitTime();

    bridge.patcher->Close();
    EXPECT_TRUE(bridge.WaitForLog("MIDI Patcher is dead.\n"));
    EXPECT_EQ(bridge.Ask("90 3C 40 01 DF DF DF DF 6C 3C 40 01", kServiceText), kServiceText);
    EXPECT_TRUE(WaitUntil([&] { return Count(bridge.Log(), "is dead.\n") == 2; }));
    EXPECT_EQ(UnitTime() - begin, std::chrono::seconds(20));
    const std::size_t before = bridge.patcher->Received().size();
    std::filesystem::rename(path + ".gone", path);

    ASSERT_TRUE(bridge.patcher->Accept());
    bridge.Ask("90 3C 40 02");
    EXPECT_EQ(bridge.TakeFrames(), "C0 02 90 3C 40 00\n");
    // The peer was named once, at the start.
    EXPECT_EQ(ToHex(bridge.patcher->Received()).substr(3 * before, 11), "E2 E0 E1 06");
    EXPECT_EQ(bridge.TakeLog(), tried + "MIDI Patcher is dead.\nUpdate the Service Center.\n" +
                                    tried + "MIDI Patcher is dead.\n" + tried +
                                    "Connected to MIDI Patcher\n");
}

TEST(VersionRequest, KeepsReplyModeOfEarlierController)
{
    constexpr char kRelease[] = "DF DF DF E0 DF DF DF DF";
    const std::string service = kServiceText + std::string("Update the Service Center.\n");
    const std::string cut(1023, 'v');
    const std::tuple<std::string, const char*, std::string> rows[] = {
        {"1.00\n", kVersion, service},
        {"2.0 %s\r\nsecond\n", kRelease, "2.0 %s\r\n2.0 %s\r\n"},
        {"none", kVersion, ""},
        {"1.00\n", "DF DF DF E1 DF DF DF DF", service},
        {cut + "vv", kRelease, cut + cut},
    };
    Scene bridge;
    bridge.OpenWithPeers();
    for (const auto& [file, groups, replyAndEntry] : rows) {
        bridge.Connect();
        bridge.Write(kReleaseFile, file);
        if (file == "none")
            bridge.Remove(kReleaseFile);
        EXPECT_EQ(bridge.Exchange(groups), replyAndEntry);
    }
}

TEST(Controllers, ReplaceEachOtherAndMayDisconnectAnytime)
{
    Scene bridge;
    bridge.OpenWithPeers();
    const std::string id = std::to_string(bridge.server->Id());
    const auto descriptors = ListDescriptors(id);

    EXPECT_TRUE(bridge.Connect()->WaitForClose());
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
    EXPECT_EQ(bridge.Ask(kVersion, kServiceText), kServiceText);
    EXPECT_EQ(UnitTime() - begin, std::chrono::seconds(5));
    bridge.SayBytes(message.substr(9));
    EXPECT_EQ(bridge.TakeReplies(), "\r\n");
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
    const std::string message = Frames({"abc"}, "\x60\xE1");
    constexpr char kFlashMode[] = "C0 7F BF 00 00 00\nC0 00 BF 66 01 00\n";
    Scene bridge;
    bridge.StartWithPeers();
    bridge.TakeReplies();
    bridge.TakeFrames();

    bridge.Send("DF DF DF DF DF DF DF E0 90 3C 40 00 6C 01 02 03 DF DF 00 C3");
    bridge.Say(Frames({"<message_box"}));
    bridge.Say(message);

    EXPECT_TRUE(bridge.controller->WaitFor(message));
    EXPECT_EQ(bridge.TakeReplies(), "Connecting to CSP\n" + message);
    EXPECT_EQ(bridge.TakeFrames(), kFlashMode);
    EXPECT_EQ(bridge.rcServer->Received(), "");

    bridge.Open();
    bridge.Send("DF DF DF DF DF DF 00 C0 DF DF DF DF 90 3C 40 00");
    EXPECT_TRUE(bridge.WaitForLog("CSP Read status Inc.\n"));
    EXPECT_EQ(bridge.TakeReplies(), std::string(kServiceText) + "Connecting to CSP\n");
    EXPECT_EQ(bridge.TakeFrames(), kFlashMode);
    EXPECT_EQ(bridge.TakeLog(), "Update the Service Center.\nStart Reading CSP Parameters\n"
                                "CSP Read status Inc.\n");
}
