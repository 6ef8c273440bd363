#pragma once

#include <stdexcept>

#include <sys/socket.h>

#include "Connection.h"

// One end of a pair of connected sockets. The other end is for whom the test is about, who takes it
// over and closes it.
class Peer : public Connection {
public:
    Peer()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0)
            throw std::runtime_error("no pair of sockets");
        Attach(ends[0]);
        other = ends[1];
    }

    int Other() const { return other; }

private:
    int other;
};
