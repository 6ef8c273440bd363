#pragma once

#include "UnixSocket.h"

#include <string>
#include <vector>

#include <poll.h>

// The RC Server: takes every connection and appends what comes to a file.
class RcServer {
public:
    // False when the file can't be opened.
    bool Open(const std::string& logPath);
    bool Listen(const std::string& socketPath);

    void AddTo(std::vector<pollfd>& watched) const;
    // Takes what has come; nothing is too early.
    void Serve();

private:
    Descriptor log;
    Descriptor listener;
    std::vector<Descriptor> clients;
};
