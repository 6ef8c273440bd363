#include <csignal>
#include <string>

#include <gtest/gtest.h>

#include "Calls.h"
#include "Descriptors.h"
#include "Peer.h"
#include "TZaurusCom.h"

TEST(ControllerLink, ServesTheLatestOfItsClients)
{
    const auto descriptors = OpenDescriptors();
    {
        TZaurusCom zaurus;
        const int listener = zaurus.SetPortDescriptor();  // at any port that is free
        ASSERT_GE(listener, 0);
        EXPECT_EQ(zaurus.GetPortDescriptor(), listener);
        TZaurusCom another;
        another.SetPortNo(PortOf(listener));
        EXPECT_EQ(another.SetPortDescriptor(), -1) << "the port is taken";
        EXPECT_LT(another.GetPortDescriptor(), 0);

        Controller first(PortOf(listener));
        EXPECT_GE(zaurus.AcceptZaurus(), 0);
        Controller second(PortOf(listener));
        const int accepted = zaurus.AcceptZaurus();
        EXPECT_EQ(zaurus.GetZaurusId(), accepted);
        EXPECT_TRUE(first.WaitForClose());
        EXPECT_EQ(zaurus.WriteMessage("hello\nmore", 6), 1);
        TellController(&zaurus, "there\n");
        EXPECT_TRUE(second.WaitFor("hello\nthere\n"));
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(ControllerLink, ReadsAtMost8193BytesAtOnceAndEndsWithItsPeer)
{
    Peer controller;
    TZaurusCom zaurus;
    zaurus.SetZaurusId(controller.Other());
    controller.Send(std::string(8192, 'g') + "12");
    EXPECT_EQ(ReadFrom(zaurus), std::string(8192, 'g') + "1");
    EXPECT_EQ(ReadFrom(zaurus), "2");

    zaurus.WriteMessage("unread", 6);
    controller.Close();
    EXPECT_EQ(ReadFrom(zaurus), "-1") << "the connection stays after a failed read";
    EXPECT_GE(zaurus.GetZaurusId(), 0);
    EXPECT_EQ(ReadFrom(zaurus), "0");
    EXPECT_EQ(zaurus.GetZaurusId(), -1);
    EXPECT_EQ(ReadFrom(zaurus), "0") << "nobody is connected";
}

TEST(ControllerLink, LosesTextsQuietlyWhenNobodyHears)
{
    std::signal(SIGPIPE, SIG_DFL);
    TZaurusCom zaurus;
    EXPECT_EQ(zaurus.WriteMessage("lost\n", 5), 0);
    {
        const Peer gone;
        zaurus.SetZaurusId(gone.Other());
    }
    EXPECT_EQ(zaurus.WriteMessage("text", -1), 0);
    EXPECT_GE(zaurus.GetZaurusId(), 0);
    EXPECT_EQ(zaurus.WriteMessage("lost\n", 5), 0);
    EXPECT_EQ(zaurus.GetZaurusId(), -1);

    Peer controller;
    EXPECT_EQ(zaurus.SetZaurusId(controller.Other()), controller.Other());
    EXPECT_EQ(zaurus.AcceptZaurus(), -1) << "it doesn't listen";
    EXPECT_TRUE(controller.IsClosed()) << "the old connection ends all the same";
}
