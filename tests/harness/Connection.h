#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "Wait.h"

// One end of a stream socket, and all bytes that have come through it.
class Connection {
public:
    Connection() = default;
    ~Connection() { Close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

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
    int Descriptor() const { return descriptor; }

private:
    int descriptor = -1;
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

// Somebody who listens. Connections wait until they are accepted.
class Listener : public Connection {
public:
    ~Listener();

    // Takes the next connection in place of the last. False when none comes.
    bool Accept(std::chrono::nanoseconds limit = kLimit);

    // Waits until the program has read all that was sent, so that the next bytes begin a read.
    // Takes in what it sends meanwhile, since it may wait for that.
    bool WaitUntilRead();

protected:
    // Takes the bound socket over. Throws std::runtime_error with the name when it can't listen.
    Listener(int socket, const std::string& name);

private:
    int listener;
};

// A process that the program reaches through a UNIX socket: the RC Server, or the MIDI Patcher of
// a test that looks at the bytes themselves. The path belongs to the unit's tree.
class Neighbour : public Listener {
public:
    explicit Neighbour(const std::string& path);
};

// A free TCP port of this machine.
class Port : public Listener {
public:
    Port();
    int Number() const { return number; }

private:
    explicit Port(std::pair<int, int> socketAndNumber);

    int number;
};
