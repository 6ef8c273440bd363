#include "Subject.h"

#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "Settings.h"
#include "System.h"

namespace {

// An address with room for a NUL after the longest path.
struct Address {
    sockaddr_un name = {};
    char end = '\0';
};

bool HasAddress(long call, int descriptor, Address& address)
{
    socklen_t length = sizeof(address.name);
    return syscall(call, descriptor, &address.name, &length) == 0;
}

// False when it isn't a socket.
bool NameSocket(int descriptor, BoundedText& name)
{
    Address own;
    if (!HasAddress(SYS_getsockname, descriptor, own))
        return false;
    Address peer;
    if (own.name.sun_family == AF_INET)
        name.Add("tcp");
    else if (HasAddress(SYS_getpeername, descriptor, peer) && peer.name.sun_path[0] != '\0')
        name = SubjectName(peer.name.sun_path);
    else
        name.Add("socket");
    return true;
}

}  // namespace

BoundedText SubjectName(int descriptor)
{
    const KeepErrno kept;
    BoundedText name;
    if (descriptor < 0)
        return name.Add("-");
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
