#include "FaultyUnit.h"

#include <stdexcept>

bool Contains(const std::string& text, const std::string& piece)
{
    return text.find(piece) != std::string::npos;
}

void Check(bool condition, const std::string& otherwise)
{
    if (!condition)
        throw std::runtime_error(otherwise);
}

FaultyUnit::FaultyUnit(const std::string& itsFault) : fault(itsFault)
{
    if (Contains(fault, ":"))
        Set("SIMUNIT_FAULT=" + fault);
}

Process& FaultyUnit::StartFaultyPiano(Words options)
{
    const std::size_t blank = fault.find(' ');
    if (blank != std::string::npos)
        options.insert(options.end(), {fault.substr(0, blank), fault.substr(blank + 1)});
    return StartPiano(options);
}

std::string FaultyUnit::SeenFault() const
{
    if (Contains(fault, "--")) {
        const std::string passed = MidiLog();
        const bool hasCome = Contains(passed, " dropped\n") || Contains(passed, " died\n");
        return hasCome ? std::string("fault link on ") + kMidiLink : "";
    }
    const std::string journal = "\n" + Journal();
    const std::size_t at = journal.find("\nfault ");
    return at == std::string::npos ? ""
                                   : journal.substr(at + 1, journal.find('\n', at + 1) - at - 1);
}

bool FaultyUnit::IsHit(std::initializer_list<const char*> subjects, const std::string& kind) const
{
    const std::string line = SeenFault();
    if (!kind.empty() && !Contains(line, "fault " + kind + " "))
        return false;
    for (const std::string subject : subjects) {
        // A socket that isn't connected yet may be either neighbor's.
        const bool isLink = subject == kMidiLink || subject == kRcLink;
        if (Contains(line, subject) || (isLink && Contains(line, " on socket")))
            return true;
    }
    return false;
}

void FaultyUnit::CheckEnd(Process& program) const
{
    constexpr std::size_t kMostReported = 400;
    const int status = program.Wait(kEndLimit);
    const std::string errors = program.Error();
    Check(!Contains(errors, "Sanitizer") && !Contains(errors, "runtime error"),
          "a sanitizer reports " + errors.substr(0, kMostReported));
    Check(status != -1, "it hangs");
    Check(status == 0, "exit status " + std::to_string(status));
    Check(Contains(Journal(), "\nexit descriptors=0\n"), "a descriptor is left");
}
