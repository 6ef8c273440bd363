#pragma once

#include "UniqueFd.h"

// The link to the controller: one listening TCP socket and at most one accepted connection. It
// moves bytes and nothing else, so that everybody who reports can write without asking whether a
// controller is there.
//
// Passive: the owner's loop watches both descriptors, accepts and reads. What comes is a run of
// groups of four bytes, which the reader takes apart; what goes out is plain text.
class TZaurusCom {
public:
    // The most bytes that one read delivers.
    static constexpr int kMaxMessage = 8193;

    TZaurusCom() = default;
    ~TZaurusCom() = default;
    TZaurusCom(const TZaurusCom&) = delete;
    TZaurusCom& operator=(const TZaurusCom&) = delete;

    void SetPortNo(int port) { portNo = port; }

    // Listens at the port. Returns the descriptor, or -1.
    int SetPortDescriptor();

    // Each is negative when there is no such descriptor.
    int GetPortDescriptor() const { return portDescriptor.Get(); }
    int GetZaurusId() const { return zaurusId.Get(); }

    // Takes over a connected descriptor and returns it. The old one isn't closed. For the unit's
    // other programs: this one only accepts.
    int SetZaurusId(int id);

    // Ends the present connection and takes the next client. Returns its descriptor, or -1.
    int AcceptZaurus();

    // Makes one read into `buf`, which has room for 8193 bytes; no NUL is added. Returns the byte
    // count, 0 when no controller is connected or the peer has closed (the connection ends),
    // negative when the read failed (the connection stays).
    int ReadMessage(char* buf);

    // Sends `len` bytes in one write. 1 when they went to the socket, 0 when no controller is
    // connected or the write failed, which ends the connection.
    int WriteMessage(const char* buf, int len);

private:
    int portNo = 0;               // a TCP port; 0 until it is set
    UniqueFd portDescriptor{-1};  // the listening socket; below 0 when there is none
    UniqueFd zaurusId{-1};        // the connection; below 0 when there is none
};

// Sends a NUL-terminated text at its exact length. A lost text is not a failure.
void SendToController(TZaurusCom* zaurus, const char* text);
