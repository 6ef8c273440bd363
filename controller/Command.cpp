#include "Command.h"

#include <algorithm>
#include <cstdio>

#include "Event.h"
#include "Exchange.h"
#include "Session.h"

namespace {

// Those for the unit come from what goes out for them.
std::vector<Command> MakeCommands()
{
    std::vector<Command> commands = {
        {"check", "FILE...", "what is wrong with image files, what is in them, and a picture",
         CheckFiles},
        {"convert", "IN OUT", "make one of .hex, .bin and .rlg from another", ConvertImage},
        {"diff", "A B", "where two images differ", CompareImages},
    };
    for (const Query& query : Queries()) {
        if (query.wait == Wait::Window)
            commands.push_back({query.command, "BYTES", query.help, SendBytes});
        else
            commands.push_back({query.command, "", query.help, Ask});
    }
    return commands;
}

}  // namespace

const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = MakeCommands();
    return commands;
}

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
