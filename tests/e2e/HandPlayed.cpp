#include "HandPlayed.h"

#include <gtest/gtest.h>

namespace {

// A message that goes to the controller as it is, in every state of the server: when it arrives,
// all that came before it has been dealt with.
constexpr char kMarkHead[] = "\x6F\xE1\x06\x37";
constexpr std::size_t kMarkSize = sizeof(kMarkHead) - 1 + 5;

constexpr std::size_t kLongestMessage = 8193;
constexpr std::size_t kKindAt = 4;  // in a frame to the piano
constexpr std::size_t kFrameSize = 10;

std::string WithoutMarks(std::string text)
{
    for (std::size_t at = 0; (at = text.find(kMarkHead, at)) != std::string::npos;)
        text.erase(at, kMarkSize);
    return text;
}

}  // namespace

HandPlayed::HandPlayed(const std::function<void(Unit&)>& arrange)
    : patcher(unit.Path("home/i2c_server_sock")), rcServer(unit.Path("tmp/rcseq_socket"))
{
    if (arrange)
        arrange(unit);
    server = &unit.StartServer();
    EXPECT_TRUE(patcher.Accept() && patcher.WaitForLine("STATUS")) << server->Error();
    rcServer.Accept(std::chrono::milliseconds(0));
    Connect();
}

void HandPlayed::Open()
{
    FailReadBack(patcher);
    EXPECT_TRUE(unit.WaitForJournal("ioctl(/dev/PciDsp, 33, 0xc01)"));
    TakeReplies();
    TakeFrames();
    TakeLog();
}

std::unique_ptr<Controller> HandPlayed::Connect()
{
    auto last = std::make_unique<Controller>(unit.Port());
    last.swap(controller);
    replySize = 0;
    EXPECT_TRUE(WaitUntil([this] {
        SayMark();
        return controller->Received().find(kMarkHead) != std::string::npos;
    }));
    return last;
}

void HandPlayed::Send(const std::string& groups) const
{
    EXPECT_TRUE(controller->Send(Bytes(groups)));
}

void HandPlayed::Say(const std::string& frames)
{
    EXPECT_LT(frames.size(), kLongestMessage);
    SayBytes(Patcher::Stuffed(frames));
}

void HandPlayed::SayBytes(const std::string& bytes)
{
    EXPECT_TRUE(patcher.Send(bytes));
    EXPECT_TRUE(patcher.WaitUntilRead());
}

void HandPlayed::SayLines(const std::vector<std::string>& said)
{
    Say(Frames(said));
}

std::string HandPlayed::SayMark()
{
    std::string mark = kMarkHead + std::to_string(++marks);
    Say(mark);
    return mark;
}

// The first mark may have come in the pass that looked for the controller's bytes just before they
// arrived. The second one is of a later pass.
void HandPlayed::Settle()
{
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(controller->WaitFor(SayMark()));
}

std::string HandPlayed::TakeReplies()
{
    Settle();
    const std::string all = WithoutMarks(controller->Received());
    std::string fresh = all.substr(replySize);
    replySize = all.size();
    return fresh;
}

std::string HandPlayed::TakeFrames()
{
    Settle();
    const std::vector<std::string> all = patcher.Frames();
    std::string fresh;
    for (; frameCount < all.size(); ++frameCount) {
        const std::string& frame = all[frameCount];
        const bool isConsole = (static_cast<unsigned char>(frame[kKindAt]) & 0xF0U) == 0x30;
        EXPECT_EQ(frame.size(), kFrameSize) << ToHex(frame);
        if (!isConsole)
            fresh += ToHex(frame.substr(kKindAt)) + "\n";
    }
    return fresh;
}

std::string HandPlayed::TakeLog()
{
    Settle();
    std::string fresh = LogTexts(unit).substr(logSize);
    logSize += fresh.size();
    return fresh;
}

std::string Frames(const std::vector<std::string>& lines, const std::string& head)
{
    std::string all;
    for (const std::string& line : lines)
        for (const std::string& frame : Patcher::ConsoleFrames(line, head))
            all += frame;
    return all;
}
