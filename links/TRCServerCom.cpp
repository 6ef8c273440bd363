#include "TRCServerCom.h"

#include <cstddef>

#include <unistd.h>

#include "Sockets.h"

TRCServerCom::TRCServerCom() : rcsDescriptor(-1) {}

TRCServerCom::~TRCServerCom()
{
    if (rcsDescriptor >= 0)
        close(rcsDescriptor);
}

int TRCServerCom::GetRCSDescriptor() const
{
    return rcsDescriptor;
}

int TRCServerCom::SetRCSDescriptor(const char* path)
{
    rcsDescriptor = mkclisocUNIX(path);
    return rcsDescriptor < 0 ? -1 : rcsDescriptor;
}

bool TRCServerCom::WriteMessage(const char* text, int length)
{
    if (rcsDescriptor < 0 || length < 0)
        return false;
    if (WriteSocket(rcsDescriptor, text, static_cast<std::size_t>(length)) >= 0)
        return true;
    close(rcsDescriptor);
    rcsDescriptor = -1;
    return false;
}
