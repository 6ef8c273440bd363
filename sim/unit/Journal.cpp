#include "Journal.h"

#include <cstring>

#include <sys/time.h>

#include "Settings.h"
#include "System.h"

void Journal(const BoundedText& call)
{
    const KeepErrno kept;
    constexpr unsigned kMicrosDigits = 6;
    timeval now = {};
    gettimeofday(&now, nullptr);
    BoundedText line;
    line.AddNumber(static_cast<unsigned long long>(now.tv_sec)).Add(".");
    line.AddNumber(static_cast<unsigned long long>(now.tv_usec), kMicrosDigits).Add(" ");
    line.AddNumber(static_cast<unsigned>(getpid())).Add(" ").Add(call.Get()).Add("\n");
    direct::Append(InRoot("/sim/journal").Get(), line.Get(), line.Length());
}

int JournalResult(BoundedText call, int result)
{
    if (result < 0)
        call.Add(" = -1 ").Add(strerrorname_np(errno));
    else
        call.Add(" = ").AddNumber(static_cast<unsigned>(result));
    Journal(call);
    return result;
}
