// The server's start and its first read-back.

#include "Image.h"
#include "Road.h"
#include "Server.h"

namespace {

constexpr std::size_t kReadRecordSize = 12;
constexpr char kFile[] = "cwd/csp_param.hex";

// The lines stand in the log, in this order, unless the fault has hit the log itself.
void HoldLogged(const Stage& stage, std::initializer_list<const char*> lines)
{
    const std::string log = stage.unit.Log();
    std::size_t at = 0;
    for (const std::string line : lines) {
        at = log.find(line + "\n", at);
        Hold(at != std::string::npos || stage.IsHit({kServerLog}), "the log lacks: " + line);
        if (at == std::string::npos)
            return;
    }
}

std::string HexDigits(std::size_t address)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%zX", address);
    return text;
}

std::string FileOutcome(const Stage& stage, const std::string& flash)
{
    if (stage.unit.Read(kFile) == HexOf(flash, kReadRecordSize))
        return "saved, file equal";
    if (stage.IsHit("open", "csp_param.hex"))
        return "read, file not made";
    Hold(stage.IsHit("fwrite", "csp_param.hex"), "the file is wrong");
    return "read, file cut by a full disk";
}

// A start with a piano whose flash ends so many bytes behind its first parameter.
std::string StartAndRead(Stage& stage, std::size_t size)
{
    const std::string flash = Pattern(size, 3);
    const std::string load = stage.unit.Write("sim/flash", flash) + "@90040000";
    Server server(stage, {"--join", "--load", load, "--read-stop", HexDigits(kImageStart + size)});
    const std::string log = stage.unit.Log();
    if (server.IsWithoutPatcher())
        return server.End("ended without the MIDI Patcher");

    HoldLogged(stage, {"Diag Server Start Now.", "MIDI Patcher is active.", "RC Server is active.",
                       "Diag Server Initialize OK"});
    if (!server.IsServing()) {
        Hold(Holds(log, "CSP Read Success.\n") || stage.IsHit({kServerLog}),
             "the log lacks the success");
        return server.End(FileOutcome(stage, flash));
    }
    Hold(Holds(log, "CSP Read Failed.\n") || stage.IsHit({kServerLog}),
         "the log lacks the failure");
    if (!stage.IsHit({kMidiLink}))
        throw Violation{"a read-back fails for no reason"};
    Hold(!stage.unit.Exists(kFile), "a read-back that failed leaves a file");
    return server.End("failed and told");
}

}  // namespace

std::string StartWithoutPiano(Stage& stage)
{
    Process& server = stage.unit.StartServer();
    stage.HoldEnd(server);
    HoldLogged(stage, {"Diag Server Start Now.", "MIDI Patcher is not active.",
                       "RC Server is not active."});
    Hold(!Holds(stage.unit.Log(), "Initialize OK"), "a start without a piano is told as good");
    return "ended by itself";
}

std::string StartUp(Stage& stage)
{
    return StartAndRead(stage, 0x18);
}

std::string ReadBack(Stage& stage)
{
    return StartAndRead(stage, 0x2010);
}
