#include "Command.h"

#include <algorithm>
#include <cstdio>

#include "Event.h"
#include "Session.h"

// clang-format off
const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = {
        {"check", "FILE...", "what is wrong with image files, what is in them, and a picture",
         CheckFiles},
        {"convert", "IN OUT", "make one of .hex, .bin and .rlg from another", ConvertImage},
        {"diff", "A B", "where two images differ", CompareImages},
        {"version", "", "the unit's release; the unit goes on answering with the service text",
         Ask},
        {"version on", "", "from now on the unit answers controllers with the release", Ask},
        {"version off", "", "from now on it answers with the service text", Ask},
        {"find-update", "", "look for a firmware file on the media and load it", Ask},
        {"update", "", "write the firmware file that was found", Ask},
        {"find-parameters", "", "look for the unit's parameter file and load it", Ask},
        {"update-parameters", "", "write the parameter file that was found", Ask},
        {"read", "", "read the parameters back into the unit's file; a success ends the server",
         Ask},
        {"backup", "", "copy the parameter file to the medium", Ask},
        {"restore", "", "copy the parameter file from the medium", Ask},
        {"send", "BYTES", "send bytes, in hex, and show what comes back for 2 seconds", SendBytes},
        {"monitor", "", "show everything until the unit ends the connection", Ask},
    };
    return commands;
}
// clang-format on

const Command* FindCommand(std::string_view name)
{
    const auto& commands = Commands();
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const Command& command) { return command.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

std::string Readable(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        if (byte >= ' ' && byte <= '~') {
            text += byte == '\\' ? "\\\\" : std::string(1, byte);
            continue;
        }
        char number[sizeof("\\xFF")];
        std::snprintf(number, sizeof(number), "\\x%02X", static_cast<unsigned char>(byte));
        text += number;
    }
    return text;
}

void Complain(std::string_view sentence)
{
    std::fprintf(stderr, "diagctl: %s\n", Readable(sentence).c_str());
}

Outcome WrongUsage(const std::string& reason)
{
    return {Status::Usage, reason + "; try diagctl --help"};
}

Status Finish(const Invocation& invocation, const Outcome& outcome)
{
    if (invocation.json) {
        Event event("result");
        event.AddNumber("status", static_cast<int>(outcome.status));
        if (!outcome.answer.empty())
            event.AddText("version", outcome.answer);
        event.AddText("text", outcome.reason);
        event.Print();
    }
    if (!outcome.reason.empty())
        Complain(outcome.reason);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return outcome.status;
    Complain("standard output can't be written");
    return Status::Failed;
}
