#include "Command.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Advice.h"
#include "Event.h"
#include "Printable.h"

namespace {

// What has been printed doesn't reach a full disk before this.
bool FlushOutput()
{
    errno = 0;
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

}  // namespace

void Complain(std::string_view sentence)
{
    std::fprintf(stderr, "diagctl: %s\n", Readable(sentence).c_str());
}

void PrintLines(const std::string& lines)
{
    std::fwrite(lines.data(), 1, lines.size(), stdout);
}

Outcome WrongUsage(const std::string& reason)
{
    return {Status::Usage, reason + "; try diagctl --help"};
}

Status Finish(const Invocation& invocation, const Outcome& outcome)
{
    const Advice* const advice = AdviceFor(outcome.reason);
    if (invocation.json) {
        Event event("result");
        event.AddNumber("status", static_cast<int>(outcome.status));
        if (!outcome.answer.empty())
            event.AddText("version", outcome.answer);
        event.AddText("text", outcome.reason);
        if (!outcome.note.empty())
            event.AddText("note", outcome.note);
        if (advice != nullptr) {
            event.AddText("cause", advice->cause);
            event.AddText("next", advice->next);
        }
        PrintLines(event.Line());
    }
    if (!outcome.reason.empty())
        Complain(outcome.reason);
    if (advice != nullptr)
        std::fprintf(stderr, "  Cause: %s.\n  Next: %s.\n", std::string(advice->cause).c_str(),
                     std::string(advice->next).c_str());
    if (FlushOutput())
        return outcome.status;
    Complain("standard output: " + std::string(errno == 0 ? "a write failed" : strerror(errno)));
    return Status::Failed;
}
