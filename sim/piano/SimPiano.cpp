#include "SimPiano.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include <sys/inotify.h>
#include <sys/select.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Paths.h"

namespace {

constexpr char kSayFile[] = "/sim/say";
constexpr char kPianoOff[] = "3072";
constexpr char kPianoOn[] = "3073";
// How soon to look again whether the system has read everything: nothing reports that. In virtual
// time, this passes only when everybody waits.
constexpr std::chrono::microseconds kLookAgain{250};

constexpr uint32_t kFlashStart = 0x90000000;

constexpr int kStatusGood = 0;
constexpr int kStatusBad = 3;

bool Complain(const std::string& what)
{
    std::fprintf(stderr, "simpiano: %s\n", what.c_str());
    return false;
}

}  // namespace

SimPiano::SimPiano(const Options& chosen)
    : options(chosen),
      flash(kFlashStart, chosen.size),
      csp(flash, transcript),
      patcher(csp, transcript)
{
    csp.SetFaults(chosen.csp);
    csp.SetSaveFile(chosen.saveFile);
    patcher.SetFaults(chosen.link);
}

bool SimPiano::Open()
{
    if (!LoadFlash())
        return Complain(options.loadFile + ": can't be loaded into the flash");
    if (!transcript.Open(Path("/sim/midi.log")) || !rcServer.Open(Path("/sim/rc.log")))
        return Complain(errno == EWOULDBLOCK ? "another simpiano runs in " + options.root
                                             : "no log files in " + Path(kSimulation));

    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    signals = Descriptor(signalfd(-1, &ends, SFD_NONBLOCK | SFD_CLOEXEC));

    const auto now = Clock::now();
    if (!options.noPatcher)
        patcherOpens = now + std::chrono::seconds(options.patcherLate);
    if (!options.noRcServer)
        rcServerOpens = now + std::chrono::seconds(options.rcServerLate);
    dsp = OpenSocket(Path(kDspSocket), SOCK_DGRAM);
    if (!dsp || !OpenWhenDue())
        return false;

    folderWatch = Descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    inotify_add_watch(folderWatch.Get(), Path(kSimulation).c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
    return true;
}

bool SimPiano::LoadFlash()
{
    if (options.loadFile.empty())
        return true;
    uint32_t address = flash.Base();
    const size_t at = options.loadFile.rfind('@');
    if (at != std::string::npos && !ParseHex(options.loadFile.substr(at + 1), &address))
        return false;
    return flash.Load(options.loadFile.substr(0, at), address);
}

bool SimPiano::OpenWhenDue()
{
    const auto open = [&](Clock::time_point& due, auto& server, const char* path) {
        if (Clock::now() < due)
            return true;
        due = kNever;
        return server.Listen(Path(path));
    };
    return open(patcherOpens, patcher, kPatcherSocket) &&
           open(rcServerOpens, rcServer, kRcServerSocket);
}

int SimPiano::Run()
{
    bool alive = true;
    bool sendingSoon = false;
    while (alive && !patcher.IsOver() && !IsTerminated()) {
        Wait(sendingSoon);
        alive = OpenWhenDue();
        patcher.Accept();
        patcher.Receive();
        // The switch has a separate socket. Its state before the bytes just received is known now,
        // so flash mode is never entered before a power-on that came first.
        TakePower();
        patcher.Process();
        rcServer.Serve();
        TakeSayFile();
        sendingSoon = patcher.Send();
    }
    patcher.NoteFrames();
    if (!options.saveFile.empty() && !flash.Save(options.saveFile))
        Complain(options.saveFile + ": the flash can't be saved");
    return transcript.BadCount() > 0 ? kStatusBad : kStatusGood;
}

void SimPiano::Wait(bool sendingSoon)
{
    std::vector<int> watched{dsp.Get(), signals.Get(), folderWatch.Get()};
    patcher.AddTo(watched);
    rcServer.AddTo(watched);
    fd_set readable;
    FD_ZERO(&readable);
    for (const int each : watched)
        FD_SET(each, &readable);

    const Clock::time_point now = Clock::now();
    Clock::time_point until = std::min(patcherOpens, rcServerOpens);
    if (sendingSoon)
        until = std::min(until, now + kLookAgain);
    using std::chrono::microseconds;
    const auto micros = std::chrono::ceil<microseconds>(std::max(until, now) - now).count();
    timeval timeout = {};
    timeout.tv_sec = static_cast<decltype(timeout.tv_sec)>(micros / 1000000);
    timeout.tv_usec = static_cast<decltype(timeout.tv_usec)>(micros % 1000000);
    select(FD_SETSIZE, &readable, nullptr, nullptr, until == kNever ? nullptr : &timeout);
}

bool SimPiano::IsTerminated() const
{
    signalfd_siginfo signal{};
    return read(signals.Get(), &signal, sizeof(signal)) > 0;
}

void SimPiano::TakePower()
{
    char text[16];
    ssize_t count = 0;
    while ((count = read(dsp.Get(), text, sizeof(text))) >= 0) {
        const std::string value(text, static_cast<size_t>(count));
        if (value != kPianoOff && value != kPianoOn) {
            transcript.Bad("dsp " + value);
            continue;
        }
        transcript.Note(value == kPianoOn ? "dsp on" : "dsp off");
        csp.SetPower(value == kPianoOn);
    }
}

void SimPiano::TakeSayFile()
{
    alignas(inotify_event) char events[4096];
    while (read(folderWatch.Get(), events, sizeof(events)) > 0) {
    }
    // Without a connection the file waits for one.
    std::ifstream file;
    if (patcher.IsConnected())
        file.open(Path(kSayFile));
    if (!file.is_open())
        return;

    const std::string order = "@faults";
    std::vector<std::string> message;
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, order.size(), order) == 0)
            TakeFaults(line.substr(order.size()));
        else
            message.push_back(line);
    }
    unlink(Path(kSayFile).c_str());
    patcher.Say(message);
}

void SimPiano::TakeFaults(const std::string& words)
{
    std::istringstream stream(words);
    Options chosen;
    const std::string complaint = chosen.Parse({std::istream_iterator<std::string>(stream), {}});
    if (!complaint.empty()) {
        Complain("say: " + complaint);
        return;
    }
    csp.SetFaults(chosen.csp);
    patcher.SetFaults(chosen.link);
}
