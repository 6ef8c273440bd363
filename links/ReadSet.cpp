#include "ReadSet.h"

static bool FitsSelect(int descriptor)
{
    return descriptor >= 0 && descriptor < FD_SETSIZE;
}

ReadSet::ReadSet()
{
    FD_ZERO(&descriptors);
}

void ReadSet::Add(int descriptor)
{
    if (!FitsSelect(descriptor))
        return;
    FD_SET(descriptor, &descriptors);
    if (descriptor > highest)
        highest = descriptor;
}

int ReadSet::Wait(int seconds)
{
    timeval timeout = {};
    timeout.tv_sec = seconds;
    return select(highest + 1, &descriptors, nullptr, nullptr, &timeout);
}

bool ReadSet::Has(int descriptor) const
{
    return FitsSelect(descriptor) && FD_ISSET(descriptor, &descriptors);
}
