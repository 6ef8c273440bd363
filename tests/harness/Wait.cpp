#include "Wait.h"

#include <iostream>
#include <thread>

#include "Clock.h"

namespace {

Clock* current = nullptr;

// Without a unit the condition can only wait for threads of the test.
bool WaitForThreads(const std::function<bool()>& condition)
{
    constexpr std::chrono::seconds kRealLimit{20};
    const auto end = std::chrono::steady_clock::now() + kRealLimit;
    bool isOver = false;
    while (!(isOver = condition()) && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    return isOver;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition, std::chrono::nanoseconds limit)
{
    if (current == nullptr)
        return WaitForThreads(condition);
    if (current->RunUntil(condition, limit.count()))
        return true;
    if (limit.count() > 0)
        std::cerr << current->Report();
    return false;
}

std::chrono::nanoseconds UnitTime()
{
    return std::chrono::nanoseconds(current->Now() - virtualtime::kBegin);
}

void NoteTcp()
{
    if (current != nullptr)
        current->NoteTcp();
}

void SetClock(Clock* clock)
{
    current = clock;
}
