#include "Scene.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "HexText.h"

namespace {

constexpr std::size_t kVersionAt = 0x400;
constexpr std::size_t kStampSize = 20;  // "06/03/14/09:05:07 - "
constexpr char kPianoOn[] = "ioctl(/dev/PciDsp, 33, 0xc01)";

constexpr std::size_t kKindAt = 4;  // in a frame to the piano

// What was added since the last call.
std::string TakeFresh(const std::string& all, std::size_t& taken)
{
    std::string fresh = all.substr(taken);
    taken = all.size();
    return fresh;
}

}  // namespace

std::string FirmwareOf(const std::string& version, std::size_t size)
{
    std::string bytes = Firmware(size);
    bytes.replace(kVersionAt, version.size() + 1, version.c_str(), version.size() + 1);
    return bytes;
}

std::string LogTexts(const Unit& unit, const std::string& path)
{
    std::istringstream lines(unit.Log(path));
    std::string texts;
    for (std::string line; std::getline(lines, line);)
        texts += line.substr(std::min(kStampSize, line.size())) + (lines.eof() ? "" : "\n");
    return texts;
}

std::string Frames(const std::vector<std::string>& lines, const std::string& head)
{
    return MidiPeer::EncodeLines(lines, head);
}

std::string EndOf(const std::string& text, const std::string& expected)
{
    if (expected.empty())
        return text;
    return text.substr(text.size() - std::min(text.size(), expected.size()));
}

std::size_t Count(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

std::string TooLargeFile(char byte)
{
    std::string text;
    text.resize(0x1000001, byte);
    return text;
}

Unit::Words Split(const std::string& line)
{
    std::istringstream words(line);
    Unit::Words split{std::istream_iterator<std::string>(words), {}};
    std::replace(split.begin(), split.end(), std::string("''"), std::string());
    return split;
}

void ExpectCleanEnd(const Unit& unit, Process& program)
{
    EXPECT_EQ(program.Wait(), 0) << program.Error();
    EXPECT_EQ(Count(unit.Journal(), "exit descriptors=0\n"), 1U) << unit.Journal();
}

ServerWithPiano::ServerWithPiano(const Unit::Words& words)
    : piano(unit.StartPiano({"--bad-checksum-at", "90040000"})),
      server(unit.Start("diag_server", words)),
      controller(unit.Port())
{
    EXPECT_TRUE(unit.WaitForJournal(kPianoOn)) << server.Error();
    SetFaults("");
}

void ServerWithPiano::SetFaults(const std::string& options) const
{
    unit.Control("say", "@faults " + options);
    EXPECT_TRUE(WaitUntil([&] { return !unit.Exists("sim/say"); }));
}

std::string ServerWithPiano::Ask(const std::string& groups, const std::string& until)
{
    const std::size_t before = controller.Received().size();
    EXPECT_TRUE(controller.Send(Bytes(groups)));
    EXPECT_TRUE(WaitUntil([&] {
        return controller.Received().find(until, before) != std::string::npos;
    })) << groups
        << " isn't answered with " << until;
    return controller.Received().substr(before);
}

ServerWithPeers::ServerWithPeers(const std::function<void(Unit&)>& arrange,
                                 const Unit::Words& words)
    : patcher(unit.Path(kMidiPatcherSocket)), rcServer(unit.Path(kRCServerSocket))
{
    if (arrange)
        arrange(unit);
    server = &unit.Start("diag_server", words);
    EXPECT_TRUE(patcher.Accept() && patcher.WaitForLine("STATUS")) << server->Error();
    rcServer.Accept(std::chrono::milliseconds(0));
    Connect();
}

void ServerWithPeers::Open()
{
    patcher.SendLines({"Status:Flash Idle", "Start READ"});
    EXPECT_TRUE(patcher.WaitForLine("NEXT   :"));
    patcher.SendLines({"no record"});
    EXPECT_TRUE(unit.WaitForJournal(kPianoOn));
    TakeReplies();
    TakeFrames();
    TakeLog();
}

std::unique_ptr<Controller> ServerWithPeers::Connect()
{
    auto last = std::make_unique<Controller>(unit.Port());
    last.swap(controller);
    replySize = 0;
    Settle();
    return last;
}

void ServerWithPeers::Send(const std::string& groups) const
{
    EXPECT_TRUE(controller->Send(Bytes(groups)));
}

std::string ServerWithPeers::Ask(const std::string& groups)
{
    Send(groups);
    return TakeReplies();
}

void ServerWithPeers::Say(const std::string& frames)
{
    SayBytes(MidiPeer::Stuff(frames));
}

void ServerWithPeers::SayBytes(const std::string& bytes)
{
    EXPECT_TRUE(patcher.Send(bytes));
    Settle();
}

void ServerWithPeers::Settle()
{
    EXPECT_TRUE(WaitUntil([] { return true; }));
}

std::string ServerWithPeers::TakeReplies()
{
    Settle();
    return TakeFresh(controller->Received(), replySize);
}

std::string ServerWithPeers::TakeFrames()
{
    Settle();
    const std::vector<std::string> all = patcher.Frames();
    std::string fresh;
    for (; frameCount < all.size(); ++frameCount) {
        const std::string data = ToHex(all[frameCount].substr(kKindAt)) + "\n";
        if (data[0] != '3')  // no text of the console
            fresh += data;
    }
    return fresh;
}

std::string ServerWithPeers::TakeLog()
{
    Settle();
    return TakeFresh(LogTexts(unit), logSize);
}
