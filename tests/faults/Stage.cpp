#include "Stage.h"

#include <csignal>
#include <cstdlib>
#include <sstream>

namespace {

constexpr char kAnyLink[] = "socket";  // one that isn't connected yet: either neighbour's
constexpr std::size_t kMostReported = 400;
constexpr long kMostLeft = 2;  // descriptors of a server without a port: the two other links

}  // namespace

std::size_t CountOf(const std::string& text, const std::string& piece)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
        ++count;
    return count;
}

Stage::Stage(const Trial& itsTrial) : trial(itsTrial)
{
    if (!trial.fault.empty())
        unit.Set("SIMUNIT_FAULT=" + trial.fault);
}

Unit::Words Stage::PianoWords(const Unit::Words& own) const
{
    Unit::Words words = own;
    words.insert(words.end(), trial.piano.begin(), trial.piano.end());
    return words;
}

// A line such as "fault read #3 EIO on /etc/KVT-lang"; the piano notes its own end.
Stage::Fault Stage::Seen() const
{
    if (!trial.piano.empty()) {
        const std::string passed = unit.MidiLog();
        const bool hasCome = Holds(passed, " dropped\n") || Holds(passed, " died\n");
        return hasCome ? Fault{"link", "", kMidiLink} : Fault{};
    }
    std::istringstream lines(unit.Journal());
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        Fault fault;
        if (words >> word && word == "fault" &&
            words >> fault.kind >> word >> fault.error >> word >> fault.subject)
            return fault;
    }
    return {};
}

bool Stage::HasFault() const
{
    return !Seen().kind.empty();
}

bool Stage::IsHit(std::initializer_list<const char*> subjects) const
{
    const Fault fault = Seen();
    for (const std::string subject : subjects) {
        const bool isLink = subject == kMidiLink || subject == kRcLink;
        if (Holds(fault.subject, subject) || (isLink && fault.subject == kAnyLink))
            return true;
    }
    return false;
}

bool Stage::IsHit(const std::string& kind, const std::string& subject) const
{
    const Fault fault = Seen();
    return fault.kind == kind && Holds(fault.subject, subject);
}

bool Stage::IsShort(const std::string& kind, const std::string& subject) const
{
    return IsHit(kind, subject) && Seen().error == "short";
}

void Stage::HoldNoReport(const Process& program)
{
    const std::string errors = program.Error();
    Hold(!Holds(errors, "Sanitizer") && !Holds(errors, "runtime error"),
         "a sanitizer reports " + errors.substr(0, kMostReported));
}

void Stage::HoldEnd(Process& program) const
{
    const int status = program.Wait(kEndLimit);
    HoldNoReport(program);
    Hold(status != -1, "it hangs");
    Hold(status == 0, "exit status " + std::to_string(status));
    Hold(Holds(unit.Journal(), "\nexit descriptors=0\n"), "a descriptor is left");
}

void Stage::HoldTermination(Process& program) const
{
    program.Kill(SIGTERM);
    HoldNoReport(program);
    const std::string journal = unit.Journal();
    const std::size_t at = journal.find("terminated descriptors=");
    Hold(at != std::string::npos, "no closing line in the journal");
    const long left = std::strtol(journal.c_str() + journal.find('=', at) + 1, nullptr, 10);
    Hold(left <= kMostLeft, std::to_string(left) + " descriptors are open");
}
