#pragma once

#include <string>
#include <vector>

#include <sys/socket.h>

#include "Descriptor.h"
#include "UnixAddress.h"
#include "Wait.h"

// One end of a stream socket, and all bytes received from it.
class Connection {
public:
    // False when the link is down or the peer is gone.
    bool Send(const std::string& bytes) const;

    // Everything that was received since the start.
    const std::string& Received();
    bool WaitFor(const std::string& text);

    // True once the peer has closed, or when there never was one.
    bool IsClosed();
    bool WaitForClose()
    {
        return WaitUntil([this] { return IsClosed(); });
    }
    void Close();

protected:
    // Takes ownership of the descriptor.
    void Attach(int connected);
    int Number() const { return owned.Get(); }

private:
    Descriptor owned;
    bool closed = true;
    std::string received;
};

// The controller: a TCP client of the server.
class Controller : public Connection {
public:
    // `address`: of the machine, the last byte; the server may listen at one of 127.0.0.1 to 255.
    explicit Controller(int port, int address = 1);

    // Closes with a reset, like a controller that loses power.
    void Reset();
};

// One end of a pair of connected sockets. The other end is for the code under test, which owns and
// closes it. With SOCK_SEQPACKET it reads each piece that was sent by itself.
class Peer : public Connection {
public:
    explicit Peer(int type = SOCK_STREAM);
    int Other() const { return other; }

private:
    int other;
};

// A process that the program reaches through a UNIX socket: the RC Server, or the MIDI Patcher in a
// test of the bytes themselves. The path belongs to the unit's tree. Connections wait until they
// are accepted.
class Neighbour : public Connection {
public:
    explicit Neighbour(const std::string& path);

    // Replaces the connection by the next one. False when none comes.
    bool Accept(std::chrono::nanoseconds limit = kLimit);

    // Lets so many others connect that the next one has to wait until one is accepted.
    void FillQueue();

private:
    UnixAddress address;
    Descriptor listener;
    std::vector<Descriptor> waiting;
};

// The number of the port that the TCP socket is bound to.
int PortOf(int descriptor);

// Occupies a TCP port of this machine: the one `wanted`, or a free one.
class Port {
public:
    explicit Port(int wanted = 0);
    int Number() const { return PortOf(taken.Get()); }

private:
    Descriptor taken;
};
