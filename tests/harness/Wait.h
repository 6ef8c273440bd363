#pragma once

#include <chrono>
#include <functional>

class Clock;

// Far more than anything here takes, in the unit's time.
constexpr std::chrono::seconds kLimit{1000};

// Lets time pass in the unit until the condition is true; it is checked when all processes wait.
// False, with a report of who waits for what on standard error, when the limit has passed first or
// nothing more happens. Without a unit only threads of the test can make it true.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::nanoseconds limit = kLimit);

// The unit's time since its start.
std::chrono::nanoseconds UnitTime();

// Records that the test has used TCP; its packets arrive before time passes.
void NoteTcp();

// The clock of the one unit that a test has at a time.
void SetClock(Clock* clock);
