#pragma once

#include <string_view>

// What a text of the unit that means a failure is about, for a technician who sees it for the first
// time.
struct Advice {
    std::string_view text;   // of the unit
    std::string_view cause;  // a sentence without its full stop
    std::string_view next;   // what to do, likewise
};

// For a reason that begins with such a text; null for any other.
const Advice* AdviceFor(std::string_view reason);
