#include "Faults.h"

#include <cstdlib>
#include <cstring>

#include "Journal.h"
#include "Settings.h"
#include "Subject.h"
#include "System.h"

namespace {

constexpr int kKinds = static_cast<int>(Call::Uncounted);
constexpr const char* kNames[kKinds] = {"open",   "read",   "write",  "connect", "accept",
                                        "select", "stat",   "statfs", "unlink",  "rename",
                                        "mount",  "umount", "ioctl",  "socket",  "bind",
                                        "listen", "utime",  "fread",  "fwrite"};

unsigned long long counts[kKinds];

// The fault that the environment requests.
struct Planned {
    int kind = -1;
    unsigned long long number = 0;
    const char* what = "";

    Planned()
    {
        const char* text = std::getenv("SIMUNIT_FAULT");
        const char* first = text == nullptr ? nullptr : std::strchr(text, ':');
        const char* second = first == nullptr ? nullptr : std::strchr(first + 1, ':');
        if (second == nullptr || !ParseNumber(first + 1, number))
            return;
        what = second + 1;
        const auto length = static_cast<std::size_t>(first - text);
        for (int i = 0; i < kKinds; ++i)
            if (std::strlen(kNames[i]) == length && std::strncmp(kNames[i], text, length) == 0)
                kind = i;
    }
};

const Planned& Plan()
{
    static const Planned planned;
    return planned;
}

// Adds a call to the list that the environment requests.
template <typename Subject>
void NoteCall(int index, unsigned long long number, Subject subject)
{
    static const char* const path = std::getenv("SIMUNIT_CALLS");
    if (path == nullptr)
        return;
    const KeepErrno kept;
    BoundedText line;
    line.Add(kNames[index]).Add(" ").AddNumber(number).Add(" ");
    line.Add(SubjectName(subject).Get()).Add("\n");
    const int file = direct::Open(path, O_WRONLY | O_CREAT | O_APPEND);
    if (file < 0)
        return;
    direct::Write(file, line.Get(), line.Length());
    direct::Close(file);
}

template <typename Subject>
Fault Count(Call kind, Subject subject)
{
    if (kind == Call::Uncounted)
        return Fault::None;
    const int index = static_cast<int>(kind);
    const unsigned long long number = ++counts[index];
    NoteCall(index, number, subject);
    const Planned& plan = Plan();
    if (plan.kind < 0 || index != plan.kind || number != plan.number)
        return Fault::None;

    BoundedText line;
    line.Add("fault ").Add(kNames[index]).Add(" #").AddNumber(number).Add(" ").Add(plan.what);
    Journal(line.Add(" on ").Add(SubjectName(subject).Get()));
    if (std::strcmp(plan.what, "short") == 0)
        return Fault::Short;
    errno = ErrnoOf(plan.what);
    return Fault::Failed;
}

}  // namespace

Fault CountCall(Call kind, int descriptor)
{
    return Count(kind, descriptor);
}

Fault CountCall(Call kind, const char* path)
{
    return Count(kind, path);
}
