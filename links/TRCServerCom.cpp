#include "TRCServerCom.h"

#include "Sockets.h"

int TRCServerCom::GetRCSDescriptor() const
{
    return rcsDescriptor.Get();
}

int TRCServerCom::SetRCSDescriptor(const char* path)
{
    rcsDescriptor.Reset(mkclisocUNIX(path));
    return rcsDescriptor ? rcsDescriptor.Get() : -1;
}

void TRCServerCom::BoundWaits()
{
    if (rcsDescriptor)
        LimitWait(rcsDescriptor.Get(), kPeerLimit);
}

bool TRCServerCom::WriteMessage(const char* text, int length)
{
    if (!rcsDescriptor || length < 0)
        return false;
    if (WriteSocket(rcsDescriptor.Get(), text, length) >= 0)
        return true;
    rcsDescriptor.Reset();
    return false;
}
