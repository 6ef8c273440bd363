#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "Patcher.h"
#include "TMidiCom.h"
#include "TempDir.h"

// What a test decides about the product's calls. A wait for a descriptor costs no real time: it
// runs out at once when nothing has come.
struct Calls {
    bool selectFails = false;
    std::int64_t waited = 0;           // seconds that the last wait would have lasted at most
    const Connection* peer = nullptr;  // sends one piece with each wait
    std::deque<std::string> pieces;
};
extern Calls calls;

// A link that is up, and the MIDI Patcher at its other end, which sends what lies in `pieces`.
struct MidiLink {
    explicit MidiLink(int connecttype = 225);
    ~MidiLink() { calls = {}; }
    MidiLink(const MidiLink&) = delete;
    MidiLink& operator=(const MidiLink&) = delete;

    TempDir dir;
    std::string path{dir.Path("patcher")};
    Patcher patcher{path};
    TMidiCom midi;
    std::deque<std::string>& pieces{calls.pieces};
};

// One message of a link, or the result of a call that has brought none.
template <class Link>
std::string ReadFrom(Link& link)
{
    std::string buffer(Link::kMaxMessage, 'u');
    const int result = link.ReadMessage(buffer.data());
    return result > 0 ? buffer.substr(0, static_cast<std::size_t>(result)) : std::to_string(result);
}

// The TCP port that a socket listens at.
int PortOf(int listener);
