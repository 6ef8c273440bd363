#pragma once

#include <ctime>
#include <sys/time.h>

#include "VirtualTime.h"

// Moments and durations in the types of libc.

inline timespec TimespecOf(virtualtime::Moment moment)
{
    timespec time = {};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(moment / virtualtime::kSecond);
    time.tv_nsec = static_cast<decltype(time.tv_nsec)>(moment % virtualtime::kSecond);
    return time;
}

inline timeval TimevalOf(virtualtime::Moment moment)
{
    const timespec time = TimespecOf(moment);
    timeval rounded = {};
    rounded.tv_sec = time.tv_sec;
    rounded.tv_usec = static_cast<decltype(rounded.tv_usec)>(time.tv_nsec / virtualtime::kMicro);
    return rounded;
}

inline virtualtime::Moment MomentOf(const timeval& time)
{
    return time.tv_sec * virtualtime::kSecond + time.tv_usec * virtualtime::kMicro;
}
