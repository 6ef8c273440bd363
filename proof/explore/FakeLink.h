#pragma once

#include <string>
#include <vector>

#include "TMidiCom.h"
#include "TZaurusCom.h"

// The link to the CSP, which ends in the walk itself: what a machine sends is gathered and read
// back as console lines, and as "group BF 00 7F 00" for a MIDI group. No controller is connected.
// There is one link at a time.
class FakeLink {
public:
    FakeLink();
    ~FakeLink() { Cut(); }
    FakeLink(const FakeLink&) = delete;
    FakeLink& operator=(const FakeLink&) = delete;

    void Cut();
    void Mend();

    // What has been sent since the last call.
    std::vector<std::string> TakeSent();

    TMidiCom midi;
    TZaurusCom zaurus;
};

// Holds that just these lines have gone out.
void HoldLines(const std::vector<std::string>& sent, const std::vector<std::string>& expected,
               const std::string& otherwise);
