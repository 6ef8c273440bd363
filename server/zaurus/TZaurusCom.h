#pragma once

#include <cstdint>

#include "Sockets.h"
#include "UniqueFd.h"

// The link to the controller: one listening TCP socket and at most one accepted connection. It
// moves bytes and nothing else, so callers can write whether or not a controller is connected.
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

    // The machine's IPv4 address to listen at, a number whose first byte is the highest; by default
    // all of them.
    void SetAddress(std::uint32_t number) { address = number; }

    // From the next connection on, a write that the controller doesn't take within kPeerLimit
    // seconds fails, and the connection of a controller that has disappeared ends.
    void BoundWaits() { isBounded = true; }

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
    int portNo = 0;                       // a TCP port; 0 until it is set
    std::uint32_t address = kAnyAddress;  // to listen at
    bool isBounded = false;               // no write waits for longer than kPeerLimit
    UniqueFd portDescriptor{-1};          // the listening socket; below 0 when there is none
    UniqueFd zaurusId{-1};                // the connection; below 0 when there is none
};

// Sends a NUL-terminated text at its exact length. A lost text is not a failure.
void SendToController(TZaurusCom* zaurus, const char* text);
