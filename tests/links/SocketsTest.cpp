// The functions that make sockets, the RC Server's link, and waits for descriptors.

#include <csignal>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Connection.h"
#include "ReadSet.h"
#include "Sockets.h"
#include "TRCServerCom.h"
#include "TempDir.h"
#include "UniqueFd.h"

namespace {

constexpr std::size_t kLongestPath = 107;  // of a socket's address

struct Sockets : testing::Test {
    TempDir dir;
    const std::string longest = dir.Path(std::string(kLongestPath - dir.Path().size() - 1, 'x'));
};

}  // namespace

TEST_F(Sockets, ReplaceStaleFiles)
{
    const UniqueFd stale(mkservsocUNIX(longest.c_str()));
    const UniqueFd service(mkservsocUNIX(longest.c_str()));
    const UniqueFd client(mkclisocUNIX(longest.c_str()));

    EXPECT_TRUE(UniqueFd(accept4(service.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
    EXPECT_EQ(rmUNIXsoc(longest.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(longest));
    EXPECT_EQ(rmUNIXsoc(longest.c_str()), 0) << "nothing there is as good";
}

TEST_F(Sockets, ReportFailureAndLeakNoDescriptor)
{
    const std::string stale = dir.Path("stale");
    close(mkservsocUNIX(stale.c_str()));
    std::filesystem::create_directory(dir.Path("full"));
    const std::string file = dir.Write("full/file", "");
    const Port taken;
    const auto descriptors = ListDescriptors();
    int reuse = 0;
    socklen_t size = sizeof(reuse);
    getsockopt(UniqueFd(mkservsocINET(0)).Get(), SOL_SOCKET, SO_REUSEADDR, &reuse, &size);

    EXPECT_EQ(mkclisocUNIX(stale.c_str()), -2) << "no listener";
    EXPECT_EQ(mkclisocUNIX((longest + "x").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX((longest + "x").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX(dir.Path("missing/socket").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX((file + "/socket").c_str()), -1);
    EXPECT_EQ(mkservsocUNIX(dir.Path("full").c_str()), -1) << "a directory isn't removed";
    EXPECT_EQ(mkservsocINET(0x10000 + taken.Number()), -2) << "its low 16 bits are taken";
    EXPECT_NE(reuse, 0) << "a restart doesn't wait for old connections";

    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(mkclisocUNIX(stale.c_str()), -1);
    EXPECT_EQ(mkservsocUNIX(stale.c_str()), -1);
    EXPECT_EQ(mkservsocINET(0), -1);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(ListDescriptors(), descriptors);
}

TEST_F(Sockets, SendTextToRcServerUntilItCloses)
{
    std::signal(SIGPIPE, SIG_DFL);
    const std::string path = dir.Path("rcseq");
    TRCServerCom link;
    EXPECT_EQ(link.SetRCSDescriptor(path.c_str()), -1);
    EXPECT_FALSE(link.WriteMessage("lost", 4));

    Neighbour server(path);
    const int descriptor = link.SetRCSDescriptor(path.c_str());
    EXPECT_EQ(link.GetRCSDescriptor(), descriptor);
    ASSERT_TRUE(server.Accept());
    EXPECT_TRUE(link.WriteMessage("<message_box>\nmore", 14));
    EXPECT_TRUE(link.WriteMessage("", 0));
    EXPECT_FALSE(link.WriteMessage("text", -1));
    EXPECT_EQ(server.Received(), "<message_box>\n");

    server.Close();
    EXPECT_FALSE(link.WriteMessage("lost", 4));
    EXPECT_EQ(link.GetRCSDescriptor(), -1);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1) << "it is closed";
    EXPECT_GE(link.SetRCSDescriptor(path.c_str()), 0) << "and its destructor closes it";
}

TEST(ReadSet, WaitsForAllAndIgnoresTooHighDescriptors)
{
    const Peer talking;
    const Peer silent;
    const UniqueFd readable(talking.Other());
    const UniqueFd idle(silent.Other());
    talking.Send("x");
    ReadSet set;
    for (const int descriptor : {-3, readable.Get(), idle.Get(), -1})
        set.Add(descriptor);
    EXPECT_EQ(set.Wait(10), 1);
    EXPECT_TRUE(set.Has(readable.Get()));
    EXPECT_FALSE(set.Has(idle.Get()));
    EXPECT_FALSE(set.Has(-1));

    ReadSet empty;
    empty.Add(FD_SETSIZE + 10);  // its bit would fall past the end
    EXPECT_EQ(empty.Wait(0), 0);
    EXPECT_FALSE(empty.Has(FD_SETSIZE + 10));
}
