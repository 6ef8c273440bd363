// Walks through everything that a CSP can say to the two state machines, and through silence, up to
// a depth, and holds what must be true in every state. States that were seen before are not walked
// again. Usage: explore SECONDS
//
// Built without access control: a state is saved and restored field by field.

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "TCspReader.h"
#include "TSStringList.h"
#include "TUpdater.h"

// The half second before "STATUS" and the log are the machine's business, not its behaviour.
extern "C" int usleep(useconds_t)
{
    return 0;
}
extern "C" FILE* fopen(const char*, const char*)
{
    errno = ENOENT;
    return nullptr;
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kConnecttype = 225;
constexpr int kFrameSize = 10;
constexpr int kLongSilence = 31;      // timeouts of one second that pass the limit
constexpr int kFlood = 1025;          // unwanted lines that pass the limit
constexpr int kBoundedSilence = 200;  // seconds in which every state must have ended
constexpr std::uint32_t kPageEnd = 0x1000;

// Sparse on purpose: few rows, and yet a block's end at a 64 KiB boundary, an end-of-file record
// that is left over, and records that other records step over.
const char* const kImage[] = {
    ":020000049004"
    "66",
    ":041FFC0001020304D7",
    ":043FFC0001020304B7",
    ":0450000001020304A2",
    ":04FFFC0001020304F7",
    ":020000049005"
    "65",
    ":041FFC0001020304D7",
    ":043FFC0001020304B7",
    ":00000001FF",
};

[[noreturn]] void Violation(const std::string& path, const char* what)
{
    std::fprintf(stderr, "violation: %s\n  by: %s\n", what, path.c_str());
    std::exit(1);
}

// The CSP's end of the link: what was sent is taken out as lines.
class FakeLink {
public:
    FakeLink()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) < 0)
            std::abort();
        midi.Set_connecttype(kConnecttype);
        ours = ends[0];
        theirs = ends[1];
        Up();
    }
    void Up() { midi.midiDescriptor = ours; }
    void Down() { midi.midiDescriptor = -1; }

    std::vector<std::string> Lines()
    {
        std::vector<std::string> lines;
        std::string line;
        char bytes[1U << 16U];
        ssize_t count = 0;
        std::string all;
        while ((count = recv(theirs, bytes, sizeof(bytes), MSG_DONTWAIT)) > 0)
            all.append(bytes, static_cast<std::size_t>(count));
        // No text of these conversations holds the escape byte, so every frame takes 12 bytes.
        for (std::size_t at = 0; at + kFrameSize + 2 <= all.size(); at += kFrameSize + 2) {
            const int kind = static_cast<unsigned char>(all[at + 4]);
            if ((kind & 0xF0) != 0x30)
                continue;
            if (kind != 0x37) {
                line.append(all, at + 5, static_cast<std::size_t>(kind & 7));
                continue;
            }
            lines.push_back(line);
            line.clear();
        }
        return lines;
    }

    TMidiCom midi;
    TZaurusCom zaurus;

private:
    int ours = -1;
    int theirs = -1;
};

struct Totals {
    long states = 0;
    long transitions = 0;
    long ended = 0;
    int depth = 0;
};

// Breadth first, so that the first violation found has the shortest story. A machine offers Events,
// Load, Save, Apply (one event and the step behind it; the step's result) and Check.
template <class Machine>
Totals Walk(Machine& machine, Clock::time_point end)
{
    struct Node {
        typename Machine::State state;
        std::string path;
        int depth;
    };
    Totals totals;
    std::unordered_map<std::string, int> seen;
    std::deque<Node> queue;
    queue.push_back({machine.Start(), "", 0});
    while (!queue.empty() && Clock::now() < end) {
        const Node node = std::move(queue.front());
        queue.pop_front();
        totals.depth = node.depth;
        for (const char* event : machine.Events()) {
            machine.Load(node.state);
            const std::string path = node.path + "/" + event;
            const int result = machine.Apply(event, path);
            ++totals.transitions;
            if (result <= 0) {
                ++totals.ended;
                continue;
            }
            const typename Machine::State reached = machine.Save();
            if (!seen.emplace(machine.Key(reached), node.depth).second)
                continue;
            ++totals.states;
            machine.CheckSilenceEnds(path);
            queue.push_back({reached, path, node.depth + 1});
        }
    }
    return totals;
}

class UpdateMachine {
public:
    explicit UpdateMachine(bool server) : inServer(server)
    {
        updater.midi = &link.midi;
        LoadImage();
    }
    ~UpdateMachine() { updater.midi = nullptr; }

    struct State {
        unsigned long upper, sended, ng;
        int line, retry, status, counter, errors, flash;
        bool sending;
    };

    State Start()
    {
        updater.updateStatus = Connect;
        Step();
        link.Lines();
        return Save();
    }
    State Save() const
    {
        return {updater.upperAddress,  updater.sendedAddress, updater.ngAddress,
                updater.lineIndex,     updater.retryCount,    updater.updateStatus,
                updater.updateCounter, updater.errorCounter,  updater.flashModeCounter,
                updater.sending};
    }
    void Load(const State& state)
    {
        updater.upperAddress = state.upper;
        updater.sendedAddress = state.sended;
        updater.ngAddress = state.ng;
        updater.lineIndex = state.line;
        updater.retryCount = state.retry;
        updater.updateStatus = state.status;
        updater.updateCounter = state.counter;
        updater.errorCounter = state.errors;
        updater.flashModeCounter = state.flash;
        updater.sending = state.sending;
    }
    static std::string Key(const State& s)
    {
        char text[160];
        std::snprintf(text, sizeof(text), "%lx %lx %lx %d %d %d %d %d %d %d", s.upper, s.sended,
                      s.ng, s.line, s.retry, s.status, s.counter, s.errors, s.flash != 0,
                      static_cast<int>(s.sending));
        return text;
    }
    static const std::vector<const char*>& Events()
    {
        static const std::vector<const char*> events = {
            "second",
            "silence",
            "flood",
            "Status:Flash Idle\r\n",
            "Start WRITE ?\r\n",
            "OK here",
            "OK 90042000\r\n",
            "OK\r\n",
            "NG 90042000\r\n",
            "NG 90041FFE\r\n",
            "NG 90050000\r\n",
            "NG 9006FFFF\r\n",
            "NG zz\r\n",
            "Erasing\r\n",
            "WR:1\r\n",
            "END\r\n",
            "Finished\r\n",
            "Failed\r\n",
            "?\r\n",
        };
        return events;
    }

    int Apply(const std::string& event, const std::string& path)
    {
        before = Save();
        const int result = Do(event);
        CheckRows(event, path);
        Check(event, path, result);
        return result;
    }

    // From here, with nobody answering, the update must end by itself.
    void CheckSilenceEnds(const std::string& path)
    {
        const State state = Save();
        link.Down();
        int seconds = 0;
        while (Silence() > 0) {
            seconds += inServer ? kServerTimeout : 1;
            if (seconds > kBoundedSilence)
                Violation(path, "silence doesn't end the update");
        }
        link.Up();
        Load(state);
    }

private:
    void LoadImage()
    {
        char path[] = "/tmp/explore-XXXXXX";
        const int file = mkstemp(path);
        for (const char* row : kImage)
            dprintf(file, "%s\r\n", row);
        close(file);
        const bool loaded = updater.LoadIntelHex(path, nullptr) == 0;
        unlink(path);
        if (!loaded || updater.hexFile->lineCount != static_cast<int>(std::size(kImage)))
            Violation("", "the image can't be made");
    }
    int Step()
    {
        return inServer ? updater.UpdateStatusDiag(&link.midi, &link.zaurus)
                        : updater.UpdateStatus();
    }
    int Silence()
    {
        if (inServer)
            updater.IncUpdateCounter();
        else
            ++updater.updateCounter;
        return Step();
    }
    void Say(const char* line)
    {
        const int length = static_cast<int>(std::strlen(line));
        if (inServer)
            updater.GetCSPMessageDiag(&link.midi, &link.zaurus, line, length);
        else
            updater.GetCSPMessage(line, length);
    }
    int SayAndStep(const char* line)
    {
        Say(line);
        return Step();
    }
    int Do(const std::string& event)
    {
        int result = 1;
        if (event == "second")
            return Silence();
        if (event == "silence") {
            for (int i = 0; i < kLongSilence && result > 0; ++i)
                result = Silence();
            return result;
        }
        if (event == "flood") {
            link.Down();  // nobody reads that much
            for (int i = 0; i < kFlood && result > 0; ++i)
                result = SayAndStep("?\r\n");
            link.Up();
            return result;
        }
        if (event == "OK here") {
            char line[32];
            std::snprintf(line, sizeof(line), "OK %08lX\r\n", updater.sendedAddress);
            return SayAndStep(line);
        }
        return SayAndStep(event.c_str());
    }
    // Rows go out in the order of the file. Only a refusal, the silence behind one and the start of
    // the data may go on elsewhere.
    void CheckRows(const std::string& event, const std::string& path)
    {
        int next = before.line;
        bool maySeek = event.rfind("NG", 0) == 0 || event == "silence" || event == "second" ||
                       updater.updateStatus != before.status;
        for (const std::string& sent : link.Lines()) {
            if (sent.empty() || sent[0] != ':')
                continue;
            if (maySeek) {
                next = 0;
                while (next < updater.lineIndex && sent != kImage[next])
                    ++next;
                maySeek = event == "silence";
            }
            if (next >= updater.hexFile->lineCount || sent != kImage[next])
                if (!maySeek)
                    Violation(path, "a row was skipped, repeated or changed");
            ++next;
        }
    }
    void Check(const std::string& event, const std::string& path, int result) const
    {
        if (updater.lineIndex < 0 || updater.lineIndex > updater.hexFile->lineCount)
            Violation(path, "the row's index left the file");
        if (updater.updateStatus == Finished && before.status != Finished &&
            event != "Finished\r\n")
            Violation(path, "finished without being told so");
        if (result == 0 && updater.updateStatus != Finished)
            Violation(path, "a success that the CSP hasn't reported");
        if (updater.updateCounter > kSilenceLimit + kServerTimeout ||
            updater.errorCounter > kErrorLimit + 2)
            Violation(path, "a counter went on above its limit");
        if (updater.retryCount > 1)
            Violation(path, "more than one restart");
    }

    bool inServer;
    FakeLink link;
    TUpdater updater;
    State before = {};
};

class ReadMachine {
public:
    struct State {
        std::uint32_t base, next;
        unsigned long start, end, last;
        int status, counter, errors, flash;
    };

    State Start()
    {
        reader.SetReaderStatus(Connect);
        Step();
        link.Lines();
        return Save();
    }
    State Save() const
    {
        return {reader.hexFile->baseAddress,
                reader.hexFile->nextAddress,
                reader.readStart,
                reader.readEnd,
                reader.lastAddress,
                reader.readerStatus,
                reader.readerCounter,
                reader.errorCounter,
                reader.flashModeCounter};
    }
    void Load(const State& state)
    {
        reader.hexFile->Reset();
        reader.hexFile->baseAddress = state.base;
        reader.hexFile->nextAddress = state.next;
        reader.readStart = state.start;
        reader.readEnd = state.end;
        reader.lastAddress = state.last;
        reader.readerStatus = state.status;
        reader.readerCounter = state.counter;
        reader.errorCounter = state.errors;
        reader.flashModeCounter = state.flash;
    }
    static std::string Key(const State& s)
    {
        char text[160];
        std::snprintf(text, sizeof(text), "%x %x %lx %lx %d %d %d %d", s.base, s.next, s.start,
                      s.last, s.status, s.counter, s.errors, s.flash);
        return text;
    }
    static const std::vector<const char*>& Events()
    {
        static const std::vector<const char*> events = {
            "second",
            "flood",
            "block",
            "Status:Flash Idle\r\n",
            "Start READ\r\n",
            ":02000004900466\r\n",
            ":02000004900565\r\n",
            ":02000004900A60\r\n",
            "next record",
            ":0400000001020304F3\r\n",
            "bad sum",
            "cut",
            ":00000001FF\r\n",
            ":00000003FD\r\n",
            "NG 90042000\r\n",
            "?\r\n",
        };
        return events;
    }
    int Apply(const std::string& event, const std::string& path)
    {
        before = Save();
        const int kept = reader.hexFile->checkedLines->count;
        const int result = Do(event);
        link.Lines();
        if (reader.hexFile->checkedLines->count > kept && before.status != Transfer)
            Violation(path, "a record was taken outside the transfer");
        // Behind a 64 KiB boundary a base record has to come first.
        const bool inPage = before.next >> 16U == before.base >> 16U;
        if (event == "next record" && before.status == Transfer && inPage &&
            reader.hexFile->nextAddress != before.next + 4)
            Violation(path, "a record in order was not taken");
        if (event == ":0400000001020304F3\r\n" && reader.hexFile->nextAddress != before.next &&
            before.base != before.next)
            Violation(path, "a record out of order was taken");
        if ((event == "bad sum" || event == "cut") && reader.hexFile->checkedLines->count > kept)
            Violation(path, "a damaged record was taken");
        if (reader.readerStatus == Finished && event != ":00000001FF\r\n")
            Violation(path, "finished without an end-of-file record");
        if (reader.readerCounter > kSilenceLimit + kServerTimeout ||
            reader.errorCounter > kErrorLimit + 1)
            Violation(path, "a counter went on above its limit");
        return result;
    }
    void CheckSilenceEnds(const std::string& path)
    {
        const State state = Save();
        link.Down();
        int seconds = 0;
        while (Silence() > 0) {
            seconds += kServerTimeout;
            if (seconds > kBoundedSilence)
                Violation(path, "silence doesn't end the read");
        }
        link.Up();
        Load(state);
    }

private:
    int Step() { return reader.UpdateStatus(&link.midi, &link.zaurus); }
    int Silence()
    {
        reader.IncReaderCounter();
        return Step();
    }
    int SayAndStep(const std::string& line)
    {
        reader.GetCSPMessage(&link.midi, &link.zaurus, line.c_str(), static_cast<int>(line.size()));
        return Step();
    }
    std::string NextRecord(bool goodSum) const
    {
        const std::uint32_t address = reader.hexFile->nextAddress & 0xFFFFU;
        const unsigned sum = 4U + (address >> 8U) + (address & 0xFFU);
        char line[32];
        std::snprintf(line, sizeof(line), ":04%04X0000000000%02X\r\n", address,
                      (0U - sum + (goodSum ? 0U : 1U)) & 0xFFU);
        return line;
    }
    int Do(const std::string& event)
    {
        int result = 1;
        if (event == "second")
            return Silence();
        if (event == "flood") {
            link.Down();
            for (int i = 0; i < kFlood && result > 0; ++i)
                result = SayAndStep("?\r\n");
            link.Up();
            return result;
        }
        if (event == "block") {
            if (reader.readerStatus != Transfer)
                return Step();
            do {
                result = SayAndStep(NextRecord(true));
            } while (result > 0 && reader.readerStatus == Transfer &&
                     reader.hexFile->nextAddress % kPageEnd != 0);
            return result;
        }
        if (event == "next record")
            return SayAndStep(NextRecord(true));
        if (event == "bad sum")
            return SayAndStep(NextRecord(false));
        if (event == "cut")
            return SayAndStep(NextRecord(true).substr(0, 15));
        return SayAndStep(event);
    }

    FakeLink link;
    TCspReader reader;
    State before = {};
};

template <class Machine>
void Report(const char* name, Machine& machine, double seconds)
{
    const auto begin = Clock::now();
    const auto limit =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    const Totals totals = Walk(machine, begin + limit);
    const std::chrono::duration<double> took = Clock::now() - begin;
    std::fprintf(stderr, "| %s | %d | %ld | %ld | %ld | %.1f | 0 |\n", name, totals.depth,
                 totals.states, totals.transitions, totals.ended, took.count());
}

}  // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60.0;
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return 1;
    std::fprintf(stderr, "| machine | depth | states | transitions | ends | seconds | violations "
                         "|\n|---|---|---|---|---|---|---|\n");
    UpdateMachine update(false);
    UpdateMachine serverUpdate(true);
    ReadMachine read;
    Report("update mode", update, seconds / 3);
    Report("update in the server", serverUpdate, seconds / 3);
    Report("read-back", read, seconds / 3);
    return 0;
}
