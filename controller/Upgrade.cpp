#include "Upgrade.h"

#include <cstdio>

#include <unistd.h>

#include "Event.h"
#include "Printable.h"
#include "Session.h"

namespace {

constexpr double kWait =
    120;  // seconds for the unit to serve, longer than a failed read-back takes

Outcome Refuse(Status status, const std::string& reason)
{
    return {status, reason + "; nothing was changed"};
}

void ShowFound(const Invocation& invocation, const std::string& version)
{
    if (invocation.json) {
        Event event("found");
        event.AddText("version", version);
        event.AddText("expected", invocation.expected);
        PrintLines(event.Line());
    } else if (!invocation.quiet) {
        std::printf("found on the medium: %s\n", Readable(version).c_str());
        if (!invocation.expected.empty())
            std::printf("expected:            %s\n", Readable(invocation.expected).c_str());
    }
    std::fflush(stdout);
}

// Asks at the terminal, where nothing else has decided.
Outcome Confirm(const Invocation& invocation, const std::string& version)
{
    if (invocation.yes)
        return {};
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)
        return Refuse(Status::Usage, "without a terminal to ask at, --yes is needed");
    std::fprintf(stderr, "Write %s to the piano? Don't switch it off until the end. [y/N] ",
                 Readable(version).c_str());
    const int answer = std::getchar();
    return answer == 'y' || answer == 'Y' ? Outcome() : Refuse(Status::Failed, "not confirmed");
}

}  // namespace

Outcome Upgrade(const Invocation& invocation)
{
    Invocation patient = invocation;
    patient.waitSeconds = invocation.waitSeconds > 0 ? invocation.waitSeconds : kWait;
    Outcome found = Ask(patient, "find-update", Shown::NothingButJson);
    if (!found.IsSuccess())
        return found;
    ShowFound(invocation, found.answer);
    if (!found.note.empty())
        Complain(found.note);
    if (!found.reason.empty())
        return Refuse(Status::Failed, "the unit reports about this file: " + found.reason);
    if (!invocation.expected.empty() && invocation.expected != found.answer)
        return Refuse(Status::Failed, "another version than expected");
    if (invocation.dryRun)
        return {Status::Success, {}, found.answer};
    if (Outcome confirmed = Confirm(invocation, found.answer); !confirmed.IsSuccess())
        return confirmed;
    const Outcome updated = Ask(invocation, "update", Shown::All);
    if (updated.IsSuccess() && !invocation.json && !invocation.quiet)
        std::printf("The piano has been updated to %s and restarted.\n",
                    Readable(found.answer).c_str());
    return {updated.status, updated.reason, found.answer};
}
