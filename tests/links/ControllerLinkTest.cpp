#include <csignal>
#include <string>
#include <utility>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Connection.h"
#include "TZaurusCom.h"

TEST(ControllerLink, ReadsAtMost8193BytesAndClosesWithPeer)
{
    const std::string sent = std::string(8192, 'g') + "12";
    std::string buffer(8194, 'u');
    Peer controller;
    TZaurusCom zaurus;
    zaurus.SetZaurusId(controller.Other());
    controller.Send(sent);
    EXPECT_EQ(zaurus.ReadMessage(buffer.data()), 8193);
    EXPECT_EQ(buffer, sent.substr(0, 8193) + "u");
    EXPECT_EQ(zaurus.ReadMessage(buffer.data()), 1);

    zaurus.WriteMessage("unread", 6);
    controller.Close();
    EXPECT_EQ(zaurus.ReadMessage(buffer.data()), -1) << "the connection stays after a failed read";
    EXPECT_GE(zaurus.GetZaurusId(), 0);
    EXPECT_EQ(zaurus.ReadMessage(buffer.data()), 0);
    EXPECT_EQ(zaurus.GetZaurusId(), -1);
    EXPECT_EQ(zaurus.ReadMessage(buffer.data()), 0) << "no connection";
}

TEST(ControllerLink, BoundsWaitsIfRequested)
{
    for (const bool isBounded : {false, true}) {
        TZaurusCom zaurus;
        if (isBounded)
            zaurus.BoundWaits();
        sockaddr_in address = {};
        socklen_t size = sizeof(address);
        getsockname(zaurus.SetPortDescriptor(), reinterpret_cast<sockaddr*>(&address), &size);
        const Controller controller(ntohs(address.sin_port));
        const int id = zaurus.AcceptZaurus();
        for (const auto& [option, value] : {std::pair(SO_KEEPALIVE, 1), {SO_SNDTIMEO, 5}}) {
            int set[sizeof(timeval) / sizeof(int)] = {};  // of a time, the seconds come first
            size = sizeof(set);
            EXPECT_EQ(getsockopt(id, SOL_SOCKET, option, set, &size), 0);
            EXPECT_EQ(set[0], isBounded ? value : 0) << option;
        }
    }
}

TEST(ControllerLink, DropsTextsQuietlyWithoutPeer)
{
    std::signal(SIGPIPE, SIG_DFL);
    TZaurusCom zaurus;
    EXPECT_EQ(zaurus.WriteMessage("lost\n", 5), 0);
    Peer earlier;
    Peer controller;
    for (const int id : {earlier.Other(), controller.Other()})
        EXPECT_EQ(zaurus.SetZaurusId(id), id);
    EXPECT_FALSE(earlier.IsClosed());
    close(earlier.Other());
    EXPECT_EQ(zaurus.WriteMessage("hello\nmore", 6), 1);
    EXPECT_EQ(zaurus.WriteMessage("", 0), 1);
    EXPECT_EQ(zaurus.WriteMessage("text", -1), 0);
    EXPECT_EQ(controller.Received(), "hello\n");

    controller.Close();
    EXPECT_EQ(zaurus.WriteMessage("lost\n", 5), 0);
    EXPECT_EQ(zaurus.GetZaurusId(), -1);

    EXPECT_EQ(zaurus.AcceptZaurus(), -1) << "it doesn't listen";
}
