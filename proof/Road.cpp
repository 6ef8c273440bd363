#include "Road.h"

#include <cstdint>
#include <cstdio>

namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t kStart = 0x90040000;
constexpr std::size_t kParameterSize = 0x60000;
constexpr std::size_t kFirmwareSize = 0x4100;  // three blocks, the last one short

constexpr milliseconds kEndLimit{15000};
constexpr milliseconds kAnswerLimit{1500};
constexpr milliseconds kFirstReadLimit{4000};

constexpr char kParameterFile[] = "usr/local/lib/diag/csp_param.hex";
constexpr char kMediumFile[] = "medium/csp_param.rlg";

bool Holds(const std::string& text, const std::string& piece)
{
    return text.find(piece) != std::string::npos;
}

// Bytes that tell where they belong, so that a misplaced one shows.
std::string Pattern(std::size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i >> 8U) * 7 + i * 13 + seed);
    return bytes;
}

std::string Record(unsigned type, unsigned address, const std::string& data)
{
    char text[16];
    auto count = static_cast<unsigned>(data.size());
    unsigned sum = count + (address >> 8U) + (address & 0xFFU) + type;
    std::snprintf(text, sizeof(text), ":%02X%04X%02X", count, address, type);
    std::string line = text;
    for (const char c : data) {
        const auto byte = static_cast<unsigned char>(c);
        sum += byte;
        std::snprintf(text, sizeof(text), "%02X", byte);
        line += text;
    }
    std::snprintf(text, sizeof(text), "%02X\r\n", (0U - sum) & 0xFFU);
    return line + text;
}

std::string HexFile(const std::string& bytes)
{
    std::string file;
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        if (at % 0x10000 == 0) {
            const auto upper = static_cast<unsigned>((kStart + at) >> 16U);
            file += Record(4, 0, {static_cast<char>(upper >> 8U), static_cast<char>(upper)});
        }
        file += Record(0, at % 0x10000, bytes.substr(at, 16));
    }
    return file + Record(1, 0, "");
}

// The data bytes of a hex file whose records stand one behind the other.
std::string DataOf(const std::string& hex)
{
    std::string bytes;
    for (std::size_t at = 0; at < hex.size(); at = hex.find('\n', at) + 1) {
        const auto digits = [&](std::size_t place) {
            return std::strtoul(hex.substr(at + place, 2).c_str(), nullptr, 16);
        };
        if (digits(7) == 0) {
            for (std::size_t i = 0; i < digits(1); ++i)
                bytes += static_cast<char>(digits(9 + 2 * i));
        }
        if (hex.find('\n', at) == std::string::npos)
            break;
    }
    return bytes;
}

// What holds for every program that has ended.
std::string EndOf(Unit& unit, Process& program)
{
    const int status = program.Wait(kEndLimit);
    const std::string errors = program.Error();
    if (Holds(errors, "Sanitizer") || Holds(errors, "runtime error"))
        return "sanitizer: " + errors.substr(0, 400);
    if (status == -1)
        return "it hangs";
    if (status != 0)
        return "exit status " + std::to_string(status);
    if (!Holds(unit.Journal(), "exit descriptors=0"))
        return "a descriptor is left";
    return "";
}

// A short write counts as sent and a lost one as silence, so an update may end either way. What it
// says must be true.
Outcome StandAloneUpdate(Unit& unit, const Unit::Words& options)
{
    const std::string bytes = Pattern(kFirmwareSize, 1);
    unit.Write("work/fw.hex", HexFile(bytes));
    Process& piano = unit.StartPiano(options);
    Process& program = unit.Start("diag_server", {"-b", "-f", "fw.hex"});
    Outcome outcome{"", EndOf(unit, program)};
    piano.Kill(SIGTERM);
    if (!outcome.violation.empty())
        return outcome;

    const std::string told = program.Output();
    if (Holds(told, "APE Update Finished")) {
        outcome.result = "finished, flash equal";
        if (unit.Flash(kStart, bytes.size()) != bytes)
            outcome.violation = "finished with a wrong flash";
        return outcome;
    }
    for (const char* failure :
         {"No Update File!", "Error:-3", "Piano is not connected 2", "Piano is no reply",
          "Piano Comunication Error !", "CSP Update Failed"}) {
        if (Holds(told, failure)) {
            outcome.result = "failed and told";
            return outcome;
        }
    }
    outcome.violation = "neither finished nor failed";
    return outcome;
}

Outcome StartWithoutPiano(Unit& unit, const Unit::Words&)
{
    Process& server = unit.StartServer();
    return {"ended by itself", EndOf(unit, server)};
}

Outcome ReadBack(Unit& unit, const Unit::Words& options)
{
    const std::string flash = Pattern(kParameterSize, 3);
    const std::string load = unit.Write("sim/flash", flash) + "@90040000";
    Unit::Words words{"--join", "--load", load};
    words.insert(words.end(), options.begin(), options.end());
    unit.StartPiano(words);
    Process& server = unit.StartServer();

    // After a read that failed the server goes on: a good piano and a controller end it.
    const auto isOver = [&] {
        return !server.IsRunning() || Holds(unit.Log(), "CSP Read Failed") ||
               Holds(unit.Read("sim/journal"), "sleep(5)");
    };
    WaitUntil(isOver, kEndLimit);
    const bool saved = DataOf(unit.Read("work/csp_param.hex")) == flash;
    if (server.Wait(milliseconds(700)) == -1)
        return {"failed, serving", ""};
    Outcome outcome{"", EndOf(unit, server)};
    const bool success = Holds(unit.Log(), "CSP Read Success");
    const bool nothing = !unit.Exists("work/csp_param.hex");
    if (saved || DataOf(unit.Read("work/csp_param.hex")) == flash)
        outcome.result = "saved, file equal";
    else if (nothing)
        outcome.result = success ? "read, file not made" : "ended without a read";
    else
        outcome.violation = "a wrong file";
    return outcome;
}

// A server whose first read-back has failed; then the work, and a good read-back that ends it.
class Server {
public:
    explicit Server(Unit& in) : unit(in)
    {
        piano = &unit.StartPiano({"--join", "--bad-checksum-at", "90040010"});
        server = &unit.StartServer();
        WaitUntil([this] { return !server->IsRunning() || FirstReadIsOver(); }, kFirstReadLimit);
    }

    // Sends a group, waits for a text, and gives everything that came.
    std::string Ask(const std::string& group, const std::string& text)
    {
        if (!server->IsRunning() || !Holds(unit.Journal(), "listen(tcp "))
            return "";
        Controller controller(unit.Port());
        controller.Send(Bytes(group));
        controller.WaitFor(text, kAnswerLimit);
        return controller.Received();
    }

    Outcome End(Outcome outcome)
    {
        if (!outcome.violation.empty())
            return outcome;
        piano->Kill(SIGTERM);
        unit.StartPiano({"--join"});
        // A fault may take one connection or one read; the gate must open again behind it.
        for (int tries = 0; tries < 12 && server->IsRunning(); ++tries) {
            if (!Holds(unit.Journal(), "listen(tcp ")) {
                // Without a port nobody can reach it, and it serves the piano on.
                return {"no port, serving", ""};
            }
            Controller controller(unit.Port());
            controller.Send(Bytes("DF DF 00 C0"));
            server->Wait(milliseconds(1000));
        }
        outcome.violation = EndOf(unit, *server);
        return outcome;
    }

    Unit& unit;
    Process* piano;

private:
    bool FirstReadIsOver() const
    {
        const std::string journal = unit.Journal();
        return Holds(journal, "0xc01") || Holds(unit.Log(), "Rebooting CSP") ||
               (Holds(journal, "fault") && Holds(journal, "sleep(5)"));
    }

    Process* server;
};

Outcome Bridge(Unit& unit, const Unit::Words&)
{
    Server server(unit);
    const std::string group = server.Ask("90 3C 40 00 6C 01 02 03 DF DF DF DF", "Center.\n");
    unit.Write("sim/say", "<message_box a>\nhello\n");
    const std::string lines = server.Ask("DF DF DF E0 DF DF DF DF", "1.00\n");
    const bool both = Holds(unit.MidiLog(), "> midi C0 90 3C 40 00") && Holds(lines, "1.00");
    return server.End({both ? "carried" : "lost a group or an answer", ""});
}

Outcome Search(Unit& unit, const Unit::Words&)
{
    unit.Write("medium/csp_prog.hex", HexFile(Pattern(0x100, 5)));
    unit.Mount("usb");
    Server server(unit);
    const std::string found = server.Ask("DF DF 00 AA", "File ]\n");
    server.Ask("DF DF 00 C1", "exsit.\n");
    return server.End({Holds(found, "System version") ? "found" : "not found", ""});
}

Outcome ServerUpdate(Unit& unit, const Unit::Words&)
{
    const std::string bytes = Pattern(kFirmwareSize, 7);
    unit.Write("medium/csp_prog.hex", HexFile(bytes));
    unit.Mount("usb");
    Server server(unit);
    server.Ask("DF DF 00 AA", "File ]\n");
    server.Ask("DF DF 00 BB", "Rebooting CSP");
    Outcome outcome{"not started", ""};
    if (Holds(unit.Log(), "CSP Update Success")) {
        outcome.result = "finished, flash equal";
        server.piano->Kill(SIGTERM);
        if (unit.Flash(kStart, bytes.size()) != bytes)
            outcome.violation = "finished with a wrong flash";
    } else if (Holds(unit.Log(), "CSP Update Failed")) {
        outcome.result = "failed and told";
    }
    return server.End(outcome);
}

Outcome Backup(Unit& unit, const Unit::Words&)
{
    unit.Write(kParameterFile, HexFile(Pattern(0x200, 9)));
    unit.Write(kMediumFile, "old");
    unit.Mount("usb");
    Server server(unit);
    const std::string told = server.Ask("DF DF 00 C3", "r.\n");
    const std::string kept = unit.Read(kMediumFile);
    Outcome outcome{"no answer", ""};
    if (Holds(unit.Log(), "Copy Success")) {
        outcome.result = "copied";
        if (kept != unit.Read("usr/local/lib/diag/csp_param.rlg"))
            outcome.violation = "copied something else";
    } else if (Holds(told, "Copy error")) {
        outcome.result = "failed and told";
    } else if (!told.empty()) {
        // Every other text comes before the medium is touched.
        outcome.result = "refused, old copy kept";
        if (kept != "old")
            outcome.violation = "the old copy is gone";
    }
    return server.End(outcome);
}

Outcome Restore(Unit& unit, const Unit::Words&)
{
    const std::string bytes = Pattern(0x200, 11);
    const std::string old = HexFile(Pattern(0x100, 13));
    unit.Write(kParameterFile, old);
    unit.Write(kMediumFile, Bytes("04 90") + bytes);  // no run and no DD in the pattern's start
    unit.Mount("floppy");
    Server server(unit);
    const std::string told = server.Ask("DF DF 00 C4", "s.\n");
    Outcome outcome{"no answer", ""};
    if (Holds(unit.Log(), "Copy Success")) {
        outcome.result = "copied";
        if (unit.Read(kParameterFile) == old)
            outcome.violation = "nothing was copied";
    } else if (!told.empty()) {
        outcome.result = "failed and told";
    }
    return server.End(outcome);
}

}  // namespace

const std::vector<Road>& Roads()
{
    static const std::vector<Road> roads = {
        {"start without a piano", StartWithoutPiano},
        {"stand-alone update", StandAloneUpdate},
        {"read-back", ReadBack},
        {"bridge", Bridge},
        {"search", Search},
        {"server update", ServerUpdate},
        {"backup", Backup},
        {"restore", Restore},
    };
    return roads;
}
