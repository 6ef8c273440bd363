#include "Calls.h"

#include <cerrno>

#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

Calls calls;

extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* limit)
{
    calls.waited = limit->tv_sec;
    if (calls.selectFails) {
        errno = EINTR;
        return -1;
    }
    if (!calls.pieces.empty()) {
        EXPECT_TRUE(calls.peer->Send(calls.pieces.front()));
        calls.pieces.pop_front();
    }
    const timespec atOnce = {};
    return pselect(count, readable, writable, failed, &atOnce, nullptr);
}

MidiLink::MidiLink(int connecttype)
{
    midi.Set_connecttype(connecttype);
    EXPECT_GE(midi.SetMidiDescriptor(path.c_str()), 0);
    EXPECT_TRUE(patcher.Accept());
    calls.peer = &patcher;
}

int PortOf(int listener)
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return ntohs(address.sin_port);
}
