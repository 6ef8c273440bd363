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

    const int file = direct::Open(InRoot("/sim/journal").Get(), O_WRONLY | O_CREAT | O_APPEND);
    if (file < 0)
        return;
    direct::Write(file, line.Get(), line.Length());
    direct::Close(file);
}

int JournalResult(BoundedText call, int result)
{
    call.Add(" = ").AddSigned(result);
    if (result < 0)
        call.Add(" ").Add(strerrorname_np(errno));
    Journal(call);
    return result;
}
