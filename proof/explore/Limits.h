#pragma once

constexpr int kSilenceBound = 200;  // seconds in which silence must have ended everything
constexpr int kMostSilence = 40;    // seconds: the first count behind the limit
constexpr int kMostErrors = 1024;
constexpr int kFlashModePeriod = 100000;

// 0 at none, 2 at the limit, 1 between the two.
inline int ClassOf(int count, int limit)
{
    return count == 0 ? 0 : (count < limit ? 1 : 2);
}
