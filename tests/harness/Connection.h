#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "UniqueFd.h"
#include "Wait.h"

// One end of a stream socket, and all bytes that have come through it.
class Connection {
public:
    // False when the link is down or the peer is gone.
    bool Send(const std::string& bytes) const;

    // Everything since the start.
    const std::string& Received();
    bool WaitFor(const std::string& text, std::chrono::nanoseconds limit = kLimit);

    // True once the peer has closed, or when there never was one.
    bool IsClosed();
    bool WaitForClose()
    {
        return WaitUntil([this] { return IsClosed(); });
    }
    void Close();

protected:
    // Takes the descriptor over.
    void Attach(int connected);
    int Descriptor() const { return owned ? owned->Get() : -1; }

private:
    std::optional<UniqueFd> owned;
    bool closed = true;
    std::string received;
};

// The controller: a TCP client of the server.
class Controller : public Connection {
public:
    explicit Controller(int port);

    // Closes with a reset, as a controller that loses its power in the middle.
    void Reset();
};

// One end of a pair of connected sockets. The other end is for whom the test is about, who takes it
// over and closes it.
class Peer : public Connection {
public:
    Peer();
    int Other() const { return other; }

private:
    int other;
};

// A process that the program reaches through a UNIX socket: the RC Server, or the MIDI Patcher of
// a test that looks at the bytes themselves. The path belongs to the unit's tree. Connections wait
// until they are accepted.
class Neighbour : public Connection {
public:
    explicit Neighbour(const std::string& path);

    // Takes the next connection in place of the last. False when none comes.
    bool Accept(std::chrono::nanoseconds limit = kLimit);

private:
    UniqueFd listener;
};

// Keeps a TCP port of this machine from the program, a free one if no number is passed.
class Port {
public:
    explicit Port(int wanted = 0);
    int Number() const { return number; }

private:
    UniqueFd taken;
    int number;
};
