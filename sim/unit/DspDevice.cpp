#include "DspDevice.h"

#include <sys/socket.h>

#include "Faults.h"
#include "Journal.h"
#include "Paths.h"
#include "Settings.h"
#include "System.h"
#include "UnixAddress.h"

namespace {

constexpr unsigned long kSetParameter = 33;

void SendToPiano(unsigned long argument)
{
    const KeepErrno kept;
    const UnixAddress address(InRoot(kDspSocket).Get());
    const auto peer = static_cast<int>(syscall(SYS_socket, AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (peer < 0)
        return;
    BoundedText text;
    text.AddNumber(argument);
    // The piano may be absent.
    syscall(SYS_sendto, peer, text.Get(), text.Length(), MSG_DONTWAIT | MSG_NOSIGNAL, address.Get(),
            UnixAddress::kSize);
    direct::Close(peer);
}

}  // namespace

int DspIoctl(unsigned long request, unsigned long argument)
{
    BoundedText line;
    line.Add("ioctl(/dev/PciDsp, ").AddNumber(request).Add(", ").AddHex(argument).Add(")");
    if (FailsNow(calls::ioctl, kDspDevice))
        return JournalResult(line, -1);
    if (request != kSetParameter)
        return JournalResult(line, FailWith(ENOTTY));
    SendToPiano(argument);
    return JournalResult(line, 0);
}
