#pragma once

#include <sys/select.h>

// The descriptors that one wait of a loop looks at. Each pass of a loop makes a new one: a wait
// leaves only what is readable in it, and links go up and down between two passes.
class ReadSet {
public:
    // Adds a descriptor. One below 0 (a link that is down) is passed over, and so is one that is
    // too high for select: such a link stays unserved, where select would write past the set.
    void Add(int descriptor);

    // Waits until a descriptor is readable, at most `seconds`. The result is that of select:
    // negative on failure, 0 when the time ran out. With an empty set it is a plain wait.
    int Wait(int seconds);

    // True when the last wait found the descriptor readable. False for one below 0.
    bool Has(int descriptor) const;

private:
    fd_set descriptors = {};  // those to wait for; after the wait, those that are readable
    int highest = -1;         // of those added; -1 when there is none
};
