#pragma once

#include <chrono>
#include <thread>

// Far beyond what anything here takes, on a busy machine and with sanitizers.
constexpr std::chrono::seconds kLimit{20};

// Waits until the condition holds. False when the limit has passed first.
template <typename Condition>
bool WaitUntil(Condition holds, std::chrono::milliseconds limit = kLimit)
{
    constexpr std::chrono::milliseconds kPause{2};
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}
