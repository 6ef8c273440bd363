#include "TZaurusCom.h"

#include <sys/socket.h>
#include <unistd.h>

#include "Sockets.h"
#include "Text.h"

int TZaurusCom::SetPortDescriptor()
{
    portDescriptor.Reset(mkservsocINET(portNo, address));
    return portDescriptor ? portDescriptor.Get() : -1;
}

int TZaurusCom::SetZaurusId(int id)
{
    zaurusId.Release();
    zaurusId.Reset(id);
    return id;
}

int TZaurusCom::AcceptZaurus()
{
    // The old connection ends even if there is no new one: its controller is taken for dead.
    zaurusId.Reset();
    zaurusId.Reset(accept(portDescriptor.Get(), nullptr, nullptr));
    if (!zaurusId)
        return -1;
    if (isBounded) {
        LimitWait(zaurusId.Get(), kPeerLimit);
        KeepAlive(zaurusId.Get());
    }
    return zaurusId.Get();
}

int TZaurusCom::ReadMessage(char* buf)
{
    if (!zaurusId)
        return 0;
    // A failed read leaves the connection to the next write, which notices a peer that has gone.
    const ssize_t count = read(zaurusId.Get(), buf, kMaxMessage);
    if (count == 0)
        zaurusId.Reset();
    return static_cast<int>(count);
}

int TZaurusCom::WriteMessage(const char* buf, int len)
{
    if (!zaurusId || len < 0)
        return 0;
    // A short write counts as sent: nothing is queued for a controller that is slow. With a bound
    // it shows that the controller hasn't read for as long.
    const long sent = WriteSocket(zaurusId.Get(), buf, len);
    if (isBounded ? sent == len : sent >= 0)
        return 1;
    zaurusId.Reset();
    return 0;
}

void SendToController(TZaurusCom* zaurus, const char* text)
{
    zaurus->WriteMessage(text, TextLength(text));
}
