#include "Subject.h"

#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "Settings.h"
#include "System.h"

namespace {

bool GetAddress(long call, int descriptor, sockaddr_un& address)
{
    socklen_t length = sizeof(address);
    return syscall(call, descriptor, &address, &length) == 0;
}

// False when it isn't a socket.
bool NameSocket(int descriptor, BoundedText& name)
{
    sockaddr_un own = {};
    if (!GetAddress(SYS_getsockname, descriptor, own))
        return false;
    sockaddr_un peer = {};
    BoundedText path;
    if (GetAddress(SYS_getpeername, descriptor, peer))
        path.Add(peer.sun_path, sizeof(peer.sun_path));
    if (own.sun_family == AF_INET)
        name.Add("tcp");
    else
        name = path.Length() > 0 ? SubjectName(path.Get()) : name.Add("socket");
    return true;
}

}  // namespace

BoundedText SubjectName(int descriptor)
{
    const KeepErrno kept;
    BoundedText name;
    if (NameSocket(descriptor, name))
        return name;
    BoundedText link;
    link.Add("/proc/self/fd/").AddNumber(static_cast<unsigned>(descriptor));
    char target[PATH_MAX] = "";
    if (syscall(SYS_readlinkat, AT_FDCWD, link.Get(), target, sizeof(target) - 1) < 0)
        return name.Add("-");
    return SubjectName(target);
}

BoundedText SubjectName(const char* path)
{
    BoundedText name;
    const std::size_t length = Root() == nullptr ? 0 : std::strlen(Root());
    const bool isBelow = length > 0 && std::strncmp(path, Root(), length) == 0;
    return name.Add(isBelow ? path + length : path);
}
