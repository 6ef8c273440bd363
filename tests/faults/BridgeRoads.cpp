// The controller's groups and the piano's lines, and the search for files.

#include <filesystem>

#include "Image.h"
#include "Road.h"
#include "Server.h"

namespace {

constexpr char kReleaseFile[] = "KVT-release";
constexpr char kBox[] = "<message_box a>\r\n";
constexpr char kExpanded[] = "tmp/csp_prog.hex";
constexpr char kParameterFile[] = "usr/local/lib/diag/csp_param.hex";

// What is left of a sequence of things that must all get through, or be lost to the fault.
class Losses {
public:
    explicit Losses(const Stage& itsStage) : stage(itsStage) {}

    void Expect(bool hasCome, const std::string& what, std::initializer_list<const char*> ways)
    {
        if (hasCome)
            return;
        Hold(stage.IsHit(ways), what + " is lost for no reason");
        lost += (lost.empty() ? "lost " : " and ") + what;
        ++count;
    }
    int Count() const { return count; }

    std::string Outcome(const std::string& otherwise) const
    {
        return lost.empty() ? otherwise : lost;
    }

private:
    const Stage& stage;
    std::string lost;
    int count = 0;
};

// A place where firmware is looked for. Packed files are expanded to the unit's disk.
struct Source {
    const char* path;
    bool isPacked;
};
constexpr Source kSources[] = {
    {"mnt/usb/csp_prog.hex", false},   {"mnt/usb/csp_prog.rlg", true},
    {"mnt/cdrom/csp_prog.hex", false}, {"mnt/cdrom/csp_prog.rlg", true},
    {"mnt/floppy/csp_prog.rlg", true},
};
constexpr std::size_t kPackedSize = 40;
constexpr std::size_t kWrittenRecordSize = 32;

void SearchAt(Stage& stage, Server& server, Losses& losses, const Source& source)
{
    // Without a version in it, a packed file answers with an empty line.
    const std::string bytes = Parameters(kPackedSize);
    const std::string text = source.isPacked ? PackedOf(bytes) : MakeUpdateImage().hex;
    const Server::Text version = source.isPacked ? Server::Text("Update File ]\n\n", " - \n")
                                                 : Server::Text("Update File ]\n1.2\n", "1.2\n");
    stage.unit.Write(source.path, text);
    stage.unit.Write(kExpanded, "an older one");

    const Server::Reply reply = server.Ask("DF DF 00 AA", {version, "exsit.\n"});
    const bool isFound = Holds(reply.told, version.told);
    losses.Expect(isFound, "a file", {"csp_prog", kController});
    if (isFound && source.isPacked)
        Hold(stage.unit.Read(kExpanded) == HexOf(bytes, kWrittenRecordSize),
             "another file was expanded");
    stage.unit.Remove(source.path);
}

}  // namespace

std::string Bridge(Stage& stage)
{
    Server server(stage);
    if (server.IsWithoutPatcher())
        return server.End("ended without the MIDI Patcher");
    const Unit& unit = stage.unit;
    Losses losses(stage);
    const auto isOnLink = [&](const char* group) {
        return Holds(unit.MidiLog(), std::string("> midi ") + group + "\n");
    };

    // The gate opens with the end of the read-back, and these wait for it in the connection.
    const Server::Reply reply = server.Ask("90 3C 40 00 6C 01 02 03 DF DF DF DF", {"Center.\n"});
    losses.Expect(Holds(reply.told, "KVT : Update the Service Center.\n"), "an answer",
                  {kController});
    server.WaitFor([&] { return isOnLink("80 6C 01 02 03"); }, {kController, kMidiLink});
    losses.Expect(isOnLink("C0 90 3C 40 00") && isOnLink("80 6C 01 02 03"), "a group",
                  {kController, kMidiLink});

    const Server::Reply release = server.Ask("DF DF DF E0 DF DF DF DF", {"1.00\n"});
    losses.Expect(Holds(release.told, "1.00\n"), "the release", {kController, kReleaseFile});

    const auto isShown = [&] { return unit.Read("sim/rc.log") == kBox; };
    const auto isPassedOn = [&] { return Holds(server.Received(), kBox); };
    server.Say("<message_box a>\nhello\n");
    const auto haveCome = [&] {
        return Holds(server.Received(), "hello\r\n") && (isShown() || isPassedOn());
    };
    server.WaitFor(haveCome, {kController, kMidiLink, kRcLink});
    losses.Expect(Holds(server.Received(), "hello\r\n"), "a line", {kController, kMidiLink});
    Hold(!isPassedOn() || stage.IsHit({kRcLink}), "a box goes to the controller for no reason");
    // A box that isn't shown goes to the controller, but what was cut short counts as shown.
    const bool isCut = stage.IsShort("write", kRcLink) && !unit.Read("sim/rc.log").empty();
    losses.Expect(isShown() || isPassedOn() || isCut, "a message box", {kMidiLink});
    const char* outcome = isPassedOn() ? "carried, a box to the controller" : "carried";
    return server.End(losses.Outcome(isCut ? "carried, a box cut" : outcome));
}

std::string Search(Stage& stage)
{
    Server server(stage);
    if (server.IsWithoutPatcher())
        return server.End("ended without the MIDI Patcher");
    Losses losses(stage);
    for (const Source& source : kSources)
        SearchAt(stage, server, losses, source);

    const Server::Reply none = server.Ask("DF DF 00 AA", {"Update File is not exsit.\n"});
    losses.Expect(Holds(none.told, "Update File is not exsit.\n"), "an answer", {kController});

    stage.unit.Write(kParameterFile, HexOf(Parameters(kPackedSize), kWrittenRecordSize));
    const Server::Reply shown = server.Ask("DF DF 00 C1", {"CSP Parameter : ", "exsit.\n"});
    losses.Expect(Holds(shown.told, "CSP Parameter : "), "the parameter file",
                  {"csp_param.hex", kController});
    Hold(losses.Count() <= 1, "one fault has cost more than one answer");
    return server.End(losses.Outcome("found"));
}
