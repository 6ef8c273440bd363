// The makers of sockets, the RC Server's link that is little more, and waits for descriptors.

#include <csignal>
#include <filesystem>
#include <string>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Calls.h"
#include "Descriptors.h"
#include "Peer.h"
#include "ReadSet.h"
#include "Sockets.h"
#include "TRCServerCom.h"
#include "UniqueFd.h"

namespace {

constexpr int kTooHigh = FD_SETSIZE + 10;  // for a set; its bit would fall behind it
constexpr std::size_t kLongestPath = 107;  // of a socket's address

// Every test ends with as many open descriptors as it began with.
class Sockets : public testing::Test {
protected:
    void SetUp() override { getrlimit(RLIMIT_NOFILE, &limit); }
    void TearDown() override
    {
        calls = {};
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(OpenDescriptors(), before);
    }
    // Descriptors up to `count` can be opened from here on. False when that is too many.
    bool LimitDescriptors(rlim_t count) const
    {
        const rlimit wanted = {count, limit.rlim_max};
        return setrlimit(RLIMIT_NOFILE, &wanted) == 0;
    }

    TempDir dir;
    const std::string longest = dir.Path(std::string(kLongestPath - dir.Path().size() - 1, 'x'));

private:
    std::ptrdiff_t before = OpenDescriptors();
    rlimit limit = {};
};

}  // namespace

TEST_F(Sockets, ReplaceStaleFiles)
{
    dir.Write(longest.substr(dir.Path().size() + 1), "a file");
    const UniqueFd stale(mkservsocUNIX(longest.c_str()));
    const UniqueFd service(mkservsocUNIX(longest.c_str()));
    ASSERT_TRUE(service);

    const UniqueFd client(mkclisocUNIX(longest.c_str()));

    ASSERT_TRUE(client);
    EXPECT_TRUE(UniqueFd(accept(service.Get(), nullptr, nullptr)));
    EXPECT_EQ(rmUNIXsoc(longest.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(longest));
    EXPECT_EQ(rmUNIXsoc(longest.c_str()), 0) << "nothing there is as good";
}

TEST_F(Sockets, ReportWhatFailedAndLeaveNoDescriptor)
{
    const std::string stale = dir.Path("stale");
    close(mkservsocUNIX(stale.c_str()));
    std::filesystem::create_directory(dir.Path("full"));
    const std::string file = dir.Write("full/file", "");
    const UniqueFd taken(mkservsocINET(0));

    EXPECT_EQ(mkclisocUNIX(stale.c_str()), -2) << "nobody listens";
    EXPECT_EQ(mkclisocUNIX((longest + "x").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX((longest + "x").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX(dir.Path("missing/socket").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX((file + "/socket").c_str()), -1);
    EXPECT_EQ(mkservsocUNIX(dir.Path("full").c_str()), -1) << "a directory isn't removed";
    int reuse = 0;
    socklen_t size = sizeof(reuse);
    getsockopt(taken.Get(), SOL_SOCKET, SO_REUSEADDR, &reuse, &size);
    EXPECT_NE(reuse, 0) << "a restart doesn't wait for old connections";
    EXPECT_EQ(mkservsocINET(0x10000 + PortOf(taken.Get())), -2) << "its low 16 bits are taken";

    LimitDescriptors(0);
    EXPECT_EQ(mkclisocUNIX(stale.c_str()), -1);
    EXPECT_EQ(mkservsocUNIX(stale.c_str()), -1);
    EXPECT_EQ(mkservsocINET(0), -1);
}

TEST_F(Sockets, CarryTextToTheRcServerUntilItGoes)
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
    EXPECT_GE(link.SetRCSDescriptor(path.c_str()), 0) << "and its destructor closes it";
}

TEST_F(Sockets, AreWaitedForTogetherButNotWhenTooHigh)
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
    EXPECT_EQ(calls.waited, 10);
    EXPECT_TRUE(set.Has(readable.Get()));
    EXPECT_FALSE(set.Has(idle.Get()));
    EXPECT_FALSE(set.Has(-1));
    EXPECT_EQ(ReadSet().Wait(1), 0) << "an empty set is a plain wait";

    if (!LimitDescriptors(kTooHigh + 1))
        GTEST_SKIP() << "no descriptor is that high here";
    const UniqueFd high(dup2(readable.Get(), kTooHigh));
    ASSERT_TRUE(high);
    ReadSet empty;
    empty.Add(high.Get());
    EXPECT_EQ(empty.Wait(1), 0);
    EXPECT_FALSE(empty.Has(high.Get()));
}
