#include "TZaurusCom.h"

#include <cstddef>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

#include "Sockets.h"

TZaurusCom::~TZaurusCom()
{
    CloseConnection();
    if (portDescriptor >= 0)
        close(portDescriptor);
}

void TZaurusCom::SetPortNo(int port)
{
    portNo = port;
}

int TZaurusCom::SetPortDescriptor()
{
    portDescriptor = mkservsocINET(portNo);
    return portDescriptor < 0 ? -1 : portDescriptor;
}

int TZaurusCom::GetPortDescriptor() const
{
    return portDescriptor;
}

int TZaurusCom::GetZaurusId() const
{
    return zaurusId;
}

int TZaurusCom::SetZaurusId(int id)
{
    zaurusId = id;
    return zaurusId;
}

// The old connection ends even if the accept fails: the client that is waiting has the better
// claim, for the old one may have lost its power without a word.
int TZaurusCom::AcceptZaurus()
{
    CloseConnection();
    zaurusId = accept(portDescriptor, nullptr, nullptr);
    return zaurusId < 0 ? -1 : zaurusId;
}

int TZaurusCom::ReadMessage(char* buf)
{
    if (zaurusId < 0)
        return 0;
    // A failed read leaves the connection to the next write, which notices a peer that has gone.
    const ssize_t count = read(zaurusId, buf, kMaxMessage);
    if (count == 0)
        CloseConnection();
    return static_cast<int>(count);
}

int TZaurusCom::WriteMessage(const char* buf, int len)
{
    if (zaurusId < 0 || len < 0)
        return 0;
    // A short write counts as sent: nothing is queued for a controller that is slow.
    if (WriteSocket(zaurusId, buf, static_cast<std::size_t>(len)) >= 0)
        return 1;
    CloseConnection();
    return 0;
}

void TZaurusCom::CloseConnection()
{
    if (zaurusId >= 0)
        close(zaurusId);
    zaurusId = -1;
}

void TellController(TZaurusCom* zaurus, const char* text)
{
    zaurus->WriteMessage(text, static_cast<int>(std::strlen(text)));
}
