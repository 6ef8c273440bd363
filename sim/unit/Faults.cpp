#include "Faults.h"

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "Journal.h"
#include "Medium.h"
#include "Settings.h"
#include "Subject.h"
#include "System.h"

namespace {

// The fault that the environment requests: CALL:NUMBER:WHAT or CALL@SUBJECT[#NUMBER]:WHAT.
struct Plan {
    BoundedText call;     // empty when there is none
    BoundedText subject;  // the end of its name
    const char* what = "";
    unsigned long long number = 1;  // 0: each
    unsigned long long seen = 0;    // calls of that kind on such a subject

    Plan()
    {
        const char* text = std::getenv("SIMUNIT_FAULT");
        const char* last = text == nullptr ? nullptr : std::strrchr(text, ':');
        if (last == nullptr)
            return;
        what = last + 1;
        const std::size_t length = std::strcspn(text, "@:");
        call.Add(text, length);
        const char* rest = text + length;
        if (*rest == '@') {
            const std::size_t end = std::strcspn(rest, "#:");
            subject.Add(rest + 1, end - 1);
            rest += end;
        }
        if (rest != last)
            ParseNumber(rest + 1, number);
    }

    bool IsFor(const Call& counted) const { return std::strcmp(call.Get(), counted.name) == 0; }

    bool Fits(const Call& counted, const BoundedText& name)
    {
        return IsFor(counted) && name.EndsWith(subject.Get()) && (++seen == number || number == 0);
    }
};

Plan& ThePlan()
{
    static Plan plan;
    return plan;
}

// The list of calls that the environment requests, or null.
const char* CallList()
{
    static const char* const path = std::getenv("SIMUNIT_CALLS");
    return path;
}

void NoteCall(const Call& call, const BoundedText& subject)
{
    if (CallList() == nullptr)
        return;
    BoundedText line;
    line.Add(call.name).Add(" ").AddNumber(call.count).Add(" ").Add(subject.Get()).Add("\n");
    direct::Append(CallList(), line.Get(), line.Length());
}

Fault FaultOf(const Call& call, const BoundedText& subject)
{
    Plan& plan = ThePlan();
    if (!plan.Fits(call, subject))
        return Fault::None;
    BoundedText line;
    line.Add("fault ").Add(call.name).Add(" #").AddNumber(call.count).Add(" ").Add(plan.what);
    Journal(line.Add(" on ").Add(subject.Get()));
    if (std::strcmp(plan.what, "crash") == 0)
        syscall(SYS_kill, getpid(), SIGKILL);
    if (std::strcmp(plan.what, "pull") == 0)
        PullMedium();
    if (ErrnoOf(plan.what) > 0)
        return Fault::Failed;
    return std::strcmp(plan.what, "short") == 0 ? Fault::Short : Fault::None;
}

template <typename Subject>
Fault Count(Call& call, Subject named)
{
    if (call.name == nullptr)
        return Fault::None;
    ++call.count;
    if (CallList() == nullptr && !ThePlan().IsFor(call))
        return Fault::None;
    const int before = errno;
    const BoundedText subject = SubjectName(named);
    NoteCall(call, subject);
    const Fault fault = FaultOf(call, subject);
    errno = fault == Fault::Failed ? ErrnoOf(ThePlan().what) : before;
    return fault;
}

}  // namespace

Fault CountCall(Call& call, int descriptor)
{
    return Count(call, descriptor);
}

Fault CountCall(Call& call, const char* path)
{
    return Count(call, path);
}
