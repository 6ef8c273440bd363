#pragma once

#include "UniqueFd.h"

// The link to the RC Server, the process that shows message boxes. It is only ever written to.
//
// Passive: the owner connects it once, at its start, and hands it lines. A failed write closes the
// link, and nothing reopens it; the owner's lines then go elsewhere.
class TRCServerCom {
public:
    TRCServerCom() = default;
    ~TRCServerCom() = default;
    TRCServerCom(const TRCServerCom&) = delete;
    TRCServerCom& operator=(const TRCServerCom&) = delete;

    // Negative when the link is down. For the unit's other programs: this one only writes.
    int GetRCSDescriptor() const;

    // Connects to the UNIX socket at `path`. Returns the descriptor, or -1.
    int SetRCSDescriptor(const char* path);

    // A write that the RC Server doesn't take within kPeerLimit seconds fails from now on.
    void BoundWaits();

    // Sends the text as it is, in one write; the caller has put a line end on it. False when the
    // link is down or the write failed, which closes the link.
    bool WriteMessage(const char* text, int length);

private:
    UniqueFd rcsDescriptor{-1};  // below 0 while the link is down
};
