// The idle server as a bridge between the controller and the piano's side, with peers that send
// anything and go at any time.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include <gtest/gtest.h>

#include "HandPlayed.h"

namespace {

constexpr char kServiceLog[] = "Update the Service Center.\n";
constexpr std::size_t kLargestRead = 8193;
constexpr int kMostLines = 910;  // end frames in a message

// The frames of a text whose line isn't ended, and one of another kind that ends the message.
std::string Part(const std::string& text)
{
    const std::string whole = Frames({text});
    return whole.substr(0, whole.size() - 9) + Bytes("E2 E1 06 C7 00 00 00 00 00");
}

}  // namespace

// ---- from the controller to the piano

TEST(Groups, AreForwardedToPianoUnlessCommands)
{
    struct Row {
        const char* name;
        std::vector<std::string> reads;
        const char* frames;
        const char* replies;
    };
    HandPlayed bridge;
    bridge.Open();
    for (const Row& row :
         {Row{"one", {"90 3C 40 01"}, "C0 01 90 3C 40 00\n", ""},
          {"seven bytes", {"90 3C 40 02 91 3D 41"}, "C0 02 90 3C 40 00\n", ""},
          {"three bytes, which no later read completes",
           {"90 3C 40", "03 90 3C 40"},
           "C0 40 03 90 3C 00\n",
           ""},
          {"a group cut in two", {"90 3C", "40 04"}, "", ""},
          {"the other kind", {"6C 01 02 05"}, "80 05 6C 01 02 00\n", ""},
          {"the other kind before any command", {"6C DF DF DF"}, "80 DF 6C DF DF 00\n", ""},
          {"nearly commands",
           {"DF DF 00 C5 DF 00 00 AA DF DF DF E2 DF DF DF 00 DE DF DF DF"},
           "C0 C5 DF DF 00 00\nC0 AA DF 00 00 00\nC0 E2 DF DF DF 00\nC0 00 DF DF DF 00\n"
           "C0 DF DE DF DF 00\n",
           ""},
          {"escape bytes", {"FE FE FF FE"}, "C0 FE FE FE FF 00\n", ""},
          {"several in a read",
           {"6C 00 00 06 DF DF DF DF 90 3C 40 07 DF DF DF E1 80 3C 00 08 90"},
           "80 06 6C 00 00 00\nC0 07 90 3C 40 00\nC0 08 80 3C 00 00\n",
           kServiceText}}) {
        SCOPED_TRACE(row.name);

        for (const std::string& read : row.reads) {
            bridge.Send(read);
            bridge.Settle();
        }

        EXPECT_EQ(bridge.TakeFrames(), row.frames);
        EXPECT_EQ(bridge.TakeReplies(), row.replies);
    }
}

TEST(Commands, AreThoseThatTheDocumentsList)
{
    HandPlayed bridge;
    bridge.Open();
    // What doesn't reach the piano is a command. The one that shuts out what follows it comes last.
    std::set<std::string> commands{kReadParameters};
    std::string groups;
    for (const std::string third : {"00", "DF"})
        for (int fourth = 0; fourth < 256; ++fourth)
            commands.insert("DF DF " + third + " " +
                            ToHex(std::string(1, static_cast<char>(fourth))));
    for (const std::string& group : commands)
        groups += group == kReadParameters ? "" : group + " ";
    bridge.Send(groups);
    std::string frames = bridge.TakeFrames();
    bridge.Send(kReadParameters);
    frames += bridge.TakeFrames();
    for (std::size_t at = 0; (at = frames.find("C0 ", at)) != std::string::npos; at += 3)
        commands.erase(frames.substr(at + 6, 9) + frames.substr(at + 3, 2));

    const std::regex group("DF DF (00|DF) [0-9A-F]{2}");
    for (const std::string name : {"README.md", "docs/protocol.md", "packaging/diag_server.8"}) {
        std::ifstream file(std::string(DIAG_SOURCE) + "/" + name);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        const std::set<std::string> listed(
            std::sregex_token_iterator(text.begin(), text.end(), group), {});
        EXPECT_EQ(listed, commands) << name;
    }
}

// ---- from the piano to the controller

TEST(Messages, AreForwardedToControllerAsLinesOrUnchanged)
{
    const std::string line = Frames({"abc"});
    const std::string whole = "\x61" + std::string(kLargestRead - 7, 'x') + "\x37" + "12345";
    const std::string bad = Bytes("E2 E3 06 37 00 00 00 00 00");
    const std::string badMark = line + Bytes("E2 E1 07 37 00 00 00 00 00");
    const std::string marked = Frames({"abc"}, "\x60\x01\x02");
    std::string most;
    for (int i = 0; i < kMostLines; ++i)
        most += "\r\n";
    struct Row {
        const char* name;
        std::vector<std::string> messages;
        std::string replies;
    };
    HandPlayed bridge;
    bridge.Open();
    for (const Row& row :
         {Row{"a line", {line}, "abc\r\n"},
          {"lines of the other peer", {Frames({"de", "f"}, "\xE2\xE5\x06")}, "de\r\nf\r\n"},
          {"several lines", {Frames({"a", "", "100%s%n", "%"})}, "a\r\n\r\n100%s%n\r\n%\r\n"},
          {"lines over three",
           {Frames({"one"}) + Part("t"), Part("w"), Frames({"o", "three"})},
           "one\r\ntwo\r\nthree\r\n"},
          {"as many lines as fit", {Frames(std::vector<std::string>(kMostLines, ""))}, most},
          {"a bad frame", {line + bad, line}, "abc\r\n"},
          {"a bad mark", {badMark, line}, "abc\r\n"},
          {"for the controller, with frames", {marked}, marked},
          {"not for the controller",
           {Frames({"abc"}, "\x70\xE1\x06"), line + Frames({"x"}, "\x60\xE1\x06")},
           "abc\r\nabc\r\nx\r\n"},
          {"the longest message", {whole}, whole},
          {"too long a message", {std::string(kLargestRead + 1, 'x'), line}, "abc\r\n"}}) {
        SCOPED_TRACE(row.name);

        for (const std::string& message : row.messages) {
            if (message.size() < kLargestRead)
                bridge.Say(message);
            else
                bridge.SayBytes(message);
        }

        EXPECT_EQ(bridge.TakeReplies(), row.replies);
    }
}

TEST(Messages, AreDroppedWhenIncompleteForFiveSeconds)
{
    HandPlayed bridge;
    bridge.Open();
    const std::string line = Frames({"Hello"});
    const std::size_t text = line.size() - 9;
    const auto begin = UnitTime();

    bridge.Say(line.substr(0, text));
    bridge.Send(kVersion);

    EXPECT_TRUE(bridge.controller->WaitFor(kServiceText));
    EXPECT_EQ(UnitTime() - begin, std::chrono::seconds(5));
    bridge.Say(line.substr(text));
    EXPECT_EQ(bridge.TakeReplies(), std::string(kServiceText) + "\r\n");
}

// ---- the link to the piano

TEST(PianoLink, ReconnectsAtTimeoutOncePatcherIsBack)
{
    HandPlayed bridge;
    bridge.Open();
    const std::string path = bridge.unit.Path("home/i2c_server_sock");
    std::filesystem::rename(path, path + ".gone");
    const auto begin = UnitTime();

    bridge.patcher.Close();
    EXPECT_TRUE(bridge.unit.WaitForLog("MIDI Patcher is dead.\n"));
    bridge.Send("90 3C 40 01 DF DF DF DF 6C 3C 40 01");
    EXPECT_TRUE(bridge.controller->WaitFor(kServiceText));
    EXPECT_TRUE(WaitUntil([&] { return Count(bridge.unit.Log(), "is dead.\n") == 3; }));
    EXPECT_EQ(UnitTime() - begin, std::chrono::seconds(30));
    const std::size_t before = bridge.patcher.Received().size();
    std::filesystem::rename(path + ".gone", path);

    ASSERT_TRUE(bridge.patcher.Accept());
    bridge.Send("90 3C 40 02");
    EXPECT_EQ(bridge.TakeFrames(), "C0 02 90 3C 40 00\n");
    // The peer was named once, at the start.
    EXPECT_EQ(ToHex(bridge.patcher.Received()).substr(3 * before, 11), "E2 E0 E1 06");
    const std::string tried = "Trying to Connect MIDI Patcher...\n";
    const std::string log = bridge.TakeLog();
    EXPECT_EQ(Count(log, tried + "MIDI Patcher is dead.\n"), 3U);
    EXPECT_EQ(Count(log, tried), 4U);
    EXPECT_EQ(log.substr(log.rfind(tried)), tried + "Connected to MIDI Patcher\n");
    EXPECT_EQ(log.substr(0, tried.size()), tried);
}

TEST(PianoLink, ReconnectsWithNothingElseToServe)
{
    Unit unit;
    const Port taken;
    Patcher patcher(unit.Path("home/i2c_server_sock"));
    Neighbour rcServer(unit.Path("tmp/rcseq_socket"));
    unit.StartServer({"-P", std::to_string(taken.Number())});
    ASSERT_TRUE(patcher.Accept() && rcServer.Accept());
    FailReadBack(patcher);
    EXPECT_TRUE(unit.WaitForLog("Rebooting CSP"));

    patcher.Close();

    EXPECT_TRUE(patcher.Accept());
    patcher.SendLines({"<message_box"});
    EXPECT_TRUE(rcServer.WaitFor("<message_box\r\n"));
    EXPECT_EQ(LinesOf(LogTexts(unit), "Zaurus"), "Zaurus Socket Port Open Error\n");
    EXPECT_TRUE(unit.WaitForLog("Connected to MIDI Patcher\n"));
}

// ---- message boxes

TEST(MessageBoxes, AreForwardedToRcServerOrElseToController)
{
    enum class RcServer { There, Absent, Gone };
    struct Row {
        const char* name;
        RcServer state;
        const char* boxes;    // to the RC Server
        const char* replies;  // to the controller
    };
    constexpr char kAll[] = "<message_box>100%s\r\n<message_bo\r\n<message_box\r\nb\r\n";
    for (const Row& row : {Row{"there", RcServer::There, "<message_box>100%s\r\n<message_box\r\n",
                               "<message_bo\r\nb\r\n"},
                           {"absent", RcServer::Absent, "", kAll},
                           {"gone", RcServer::Gone, "<message_box last>\r\n", kAll}}) {
        SCOPED_TRACE(row.name);
        HandPlayed bridge([&row](Unit& unit) {
            if (row.state == RcServer::Absent)
                unit.Remove("tmp/rcseq_socket");
        });
        bridge.Open();
        if (row.state == RcServer::Gone) {
            bridge.SayLines({"<message_box last>"});
            EXPECT_TRUE(bridge.rcServer.WaitFor("<message_box last>\r\n"));
            bridge.rcServer.Close();
        }

        bridge.SayLines({"<message_box>100%s", "<message_bo", "<message_box", "b"});

        EXPECT_EQ(bridge.TakeReplies(), row.replies);
        EXPECT_EQ(bridge.rcServer.Received(), row.boxes);
        EXPECT_FALSE(bridge.rcServer.Accept(std::chrono::milliseconds(0)));
    }
}

// ---- the controller's link

TEST(VersionRequest, AnswersAsEarlierControllersChose)
{
    const std::string missing = "-";
    const std::string tooLong(2000, 'v');
    struct Row {
        std::string file;
        const char* groups;
        std::string replies;
        std::string log;
    };
    HandPlayed bridge;
    bridge.Open();
    for (const Row& row :
         {Row{"1.00\n", "DF DF DF DF", kServiceText, kServiceLog},
          {"1.00\n", "DF DF DF E0 DF DF DF DF", "1.00\n", "1.00\n"},
          {"2.0 %s\r\nsecond\n", "DF DF DF DF", "2.0 %s\r\n", "2.0 %s\r\n"},
          {tooLong, "DF DF DF DF", tooLong.substr(0, 1023), tooLong.substr(0, 1023)},
          {missing, "DF DF DF DF", "", ""},
          {"1.00\n", "DF DF DF E1 DF DF DF DF", kServiceText, kServiceLog},
          {"1.00\n", "DF DF DF E0 DF DF DF E1 DF DF DF E0", "", ""}}) {
        SCOPED_TRACE(row.file.substr(0, 20) + " " + row.groups);
        bridge.Connect();
        bridge.unit.Remove("etc/KVT-release");
        if (row.file != missing)
            bridge.unit.Write("etc/KVT-release", row.file);
        const std::size_t before = bridge.unit.Log().size();

        bridge.Send(row.groups);

        EXPECT_EQ(bridge.TakeReplies(), row.replies);
        const std::string entry = bridge.unit.Log().substr(before);
        EXPECT_EQ(entry.substr(std::min<std::size_t>(entry.size(), 20)), row.log);
    }
}

TEST(Controllers, ReplaceEachOtherAndMayVanishAnyTime)
{
    HandPlayed bridge;
    bridge.Open();
    // True when some of the next passes wait for their timeouts: nothing is left of a connection
    // that wakes the loop again and again.
    const auto sleeps = [&bridge] {
        const auto passes = [&] {
            return Count(bridge.server->Output(), "Diag Update Status()\n");
        };
        const std::size_t before = passes();
        const auto begin = UnitTime();
        EXPECT_TRUE(WaitUntil([&] { return passes() >= before + 4; }));
        return UnitTime() - begin >= std::chrono::seconds(10);
    };
    bridge.Send(kRepliesOn);
    bridge.Settle();

    const std::unique_ptr<Controller> first = bridge.Connect();
    EXPECT_TRUE(first->WaitForClose());
    bridge.Send(kVersion);
    EXPECT_EQ(bridge.TakeReplies(), "1.00\n");

    // The groups of one that hangs up are carried out to the last.
    bridge.Send("DF DF DF E1 DF DF DF DF DF DF DF DF DF DF DF DF 90 3C 40 01");
    bridge.controller->Close();
    EXPECT_TRUE(WaitUntil([&] { return Count(bridge.unit.Log(), kServiceLog) == 3; }));
    EXPECT_TRUE(sleeps());
    bridge.Connect();
    EXPECT_EQ(bridge.TakeFrames(), "C0 01 90 3C 40 00\n");

    bridge.controller->Reset();
    EXPECT_TRUE(sleeps());
    bridge.Connect();
    bridge.Send(kVersion);
    EXPECT_EQ(bridge.TakeReplies(), kServiceText);
}

TEST(Controllers, MayChangeWhileServerIsBusy)
{
    HandPlayed bridge;
    bridge.Open();

    // The server waits for the rest of a message, so it finds one controller gone and another there
    // at the same time. A read for the new one, which has nothing to say yet, would never end.
    bridge.SayBytes(Part("Hello").substr(0, 9));
    bridge.controller->Close();
    bridge.Connect();

    bridge.Send(kVersion);
    EXPECT_EQ(bridge.TakeReplies(), kServiceText);
}

// ---- the gate

TEST(Gate, DropsGroupsAndMessageBoxesDuringReadBack)
{
    HandPlayed bridge;
    bridge.TakeReplies();
    bridge.TakeFrames();

    bridge.Send("DF DF DF DF DF DF DF E0 90 3C 40 00 6C 01 02 03 DF DF 00 C3");
    bridge.SayLines({"<message_box"});
    bridge.SayBytes(Frames({"abc"}, "\x60\xE1\x06"));

    EXPECT_EQ(bridge.TakeReplies(), "Connecting to CSP\n" + Frames({"abc"}, "\x60\xE1\x06"));
    EXPECT_EQ(bridge.TakeFrames(), "C0 7F BF 00 00 00\nC0 00 BF 66 01 00\n");
    EXPECT_EQ(bridge.rcServer.Received(), "");

    bridge.Open();
    bridge.Send(kVersion);
    EXPECT_EQ(bridge.TakeReplies(), kServiceText);

    bridge.TakeLog();
    bridge.Send("DF DF 00 C0 DF DF DF DF 90 3C 40 00");
    EXPECT_EQ(bridge.TakeReplies(), "Connecting to CSP\n");
    EXPECT_EQ(bridge.TakeLog(), "Start Reading CSP Parameters\n");
    EXPECT_EQ(bridge.TakeFrames(), "C0 7F BF 00 00 00\nC0 00 BF 66 01 00\n");
}
