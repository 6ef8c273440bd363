#include "ReadSet.h"

// A set is an array of bits, and its macros test no index.
static bool FitsSelect(int descriptor)
{
    return descriptor >= 0 && descriptor < FD_SETSIZE;
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
    // The first argument is a count of numbers from 0 on, so one more than the highest.
    return select(highest + 1, &descriptors, nullptr, nullptr, &timeout);
}

bool ReadSet::Has(int descriptor) const
{
    return FitsSelect(descriptor) && FD_ISSET(descriptor, &descriptors);
}
