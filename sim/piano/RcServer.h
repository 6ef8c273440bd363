#pragma once

#include "UnixSocket.h"

#include <string>
#include <vector>

// The RC Server: accepts every connection and appends what it receives to a file.
class RcServer {
public:
    // False when the file can't be opened.
    bool Open(const std::string& logPath);
    bool Listen(const std::string& socketPath);

    void AddTo(std::vector<int>& watched) const;
    // Accepts connections and reads bytes, without waiting for either.
    void Serve();

private:
    Descriptor log;
    Descriptor listener;
    std::vector<Descriptor> clients;
};
