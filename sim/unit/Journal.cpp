#include "Journal.h"

#include <cstring>

#include <sys/time.h>

#include "Settings.h"
#include "System.h"

void Journal(const BoundedText& call)
{
    const KeepErrno kept;
    constexpr unsigned kMicrosDigits = 6;
    constexpr unsigned kDecimal = 10;
    timeval now = {};
    gettimeofday(&now, nullptr);
    BoundedText line;
    line.AddSigned(now.tv_sec).Add(".");
    line.AddNumber(static_cast<unsigned long long>(now.tv_usec), kDecimal, kMicrosDigits);
    line.Add(" ").AddSigned(getpid()).Add(" ").Add(call.Get()).Add("\n");

    direct::Append(InRoot("/sim/journal").Get(), line.Get(), line.Length());
}

int JournalResult(BoundedText call, int result)
{
    call.Add(" = ").AddSigned(result);
    if (result < 0)
        call.Add(" ").Add(strerrorname_np(errno));
    Journal(call);
    return result;
}
