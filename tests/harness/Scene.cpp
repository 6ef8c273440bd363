#include "Scene.h"

#include "HexText.h"
#include "Texts.h"

namespace {

constexpr char kPianoOn[] = "ioctl(/dev/PciDsp, 33, 0xc01)";

constexpr std::size_t kKindAt = 4;  // in a frame to the piano

// What was added since the last call.
std::string TakeFresh(const std::string& all, std::size_t& taken)
{
    std::string fresh = all.substr(std::min(taken, all.size()));
    taken = all.size();
    return fresh;
}

}  // namespace

void Scene::StartWithPiano(const Words& words, const Words& options)
{
    piano = &StartPiano(options);
    server = &Start("diag_server", words);
}

void Scene::OpenWithPiano(const Words& words)
{
    StartWithPiano(words, {"--bad-checksum-at", "90040000"});
    Connect();
    Check(WaitForJournal(kPianoOn), "the server has no end of a read-back: " + server->Error());
    SetFaults("");
    TakeReplies();
}

void Scene::SetFaults(const std::string& options) const
{
    Control("say", "@faults " + options);
    Check(WaitUntil([&] { return !Exists("sim/say"); }), "the piano takes no faults");
}

void Scene::StartWithPeers(const Words& words, const std::string& absent)
{
    patcher.emplace(Path(kMidiPatcherSocket));
    rcServer.emplace(Path(kRCServerSocket));
    Remove(absent);
    server = &Start("diag_server", words);
    Check(patcher->Accept() && patcher->WaitForLine("STATUS"), server->Error());
    rcServer->Accept(std::chrono::milliseconds(0));
    Connect();
}

void Scene::StartReading()
{
    patcher->SendLines({"Status:Flash Idle", "Start READ"});
    Check(patcher->WaitForLine("NEXT   :"), "the read-back requests no block");
    TakeReplies();
}

void Scene::Open()
{
    StartReading();
    patcher->SendLines({"no record"});
    Check(WaitForJournal(kPianoOn), "the read-back has no end");
    TakeReplies();
    TakeFrames();
    TakeLog();
}

void Scene::OpenWithPeers(const Words& words, const std::string& absent)
{
    StartWithPeers(words, absent);
    Open();
}

std::unique_ptr<Controller> Scene::Connect()
{
    auto last = std::make_unique<Controller>(Port());
    last.swap(controller);
    replySize = 0;
    Settle();
    return last;
}

void Scene::Send(const std::string& groups) const
{
    Check(controller->Send(Bytes(groups)), "the server doesn't take " + groups);
}

std::string Scene::Ask(const std::string& groups, const std::string& until)
{
    TakeReplies();
    Send(groups);
    const auto isThere = [&] { return Contains(controller->Received().substr(replySize), until); };
    Check(WaitUntil(isThere), groups + " isn't answered with " + until);
    return TakeReplies();
}

void Scene::SayBytes(const std::string& bytes)
{
    Check(patcher->Send(bytes), "the server doesn't read from the MIDI Patcher");
    Settle();
}

void Scene::Pass(std::chrono::nanoseconds time) const
{
    const auto end = UnitTime() + time;
    WaitUntil([&] { return UnitTime() >= end || !server->IsRunning(); }, 2 * time);
}

std::string Scene::TakeReplies()
{
    Settle();
    return TakeFresh(controller->Received(), replySize);
}

std::string Scene::TakeFrames()
{
    Settle();
    const Words all = patcher->Frames();
    std::string fresh;
    for (; frameCount < all.size(); ++frameCount) {
        const std::string data = ToHex(all[frameCount].substr(kKindAt)) + "\n";
        if (data[0] != '3')  // no text of the console
            fresh += data;
    }
    return fresh;
}

std::string Scene::TakeLog()
{
    Settle();
    return TakeFresh(LogTexts(), logSize);
}

std::string Scene::Exchange(const std::string& groups)
{
    std::string all = Ask(groups);
    all += TakeFrames();
    return all += TakeLog();
}
