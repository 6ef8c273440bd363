#include "RcServer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

bool RcServer::Open(const std::string& logPath)
{
    log = Descriptor(open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    return static_cast<bool>(log);
}

bool RcServer::Listen(const std::string& socketPath)
{
    listener = OpenSocket(socketPath, SOCK_STREAM);
    return static_cast<bool>(listener);
}

void RcServer::AddTo(std::vector<int>& watched) const
{
    if (listener)
        watched.push_back(listener.Get());
    for (const Descriptor& client : clients)
        watched.push_back(client.Get());
}

// False when the connection is over.
static bool Append(int client, int log)
{
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(client, buffer, sizeof(buffer))) > 0)
        if (write(log, buffer, static_cast<size_t>(count)) != count)
            std::perror("simpiano: rc.log");
    return count < 0 && errno == EAGAIN;
}

void RcServer::Serve()
{
    Descriptor fresh = AcceptFrom(listener);
    if (fresh)
        clients.push_back(std::move(fresh));
    const auto isOver = [&](const Descriptor& each) { return !Append(each.Get(), log.Get()); };
    clients.erase(std::remove_if(clients.begin(), clients.end(), isOver), clients.end());
}
