// The functions that make sockets and wait for them, the links of the RC Server and the controller,
// and the texts over any of them.

#include <csignal>
#include <tuple>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Connection.h"
#include "ReadSet.h"
#include "Sockets.h"
#include "TRCServerCom.h"
#include "TZaurusCom.h"
#include "TempDir.h"
#include "TextService.h"
#include "UniqueFd.h"

using namespace std::string_literals;

namespace {

constexpr std::size_t kLongestPath = 107;  // of a socket's address
const std::string kLongest(8192, 'x');     // text of the service

struct Sockets : testing::Test {
    TempDir dir;
    const std::string longest = dir.Path(std::string(kLongestPath - dir.Path().size() - 1, 'x'));
};

// A client of the service, and the service's end of their connection.
struct TextService : testing::Test {
    Peer client;
    UniqueFd service{client.Other()};
};

}  // namespace

TEST_F(Sockets, ReplaceStaleFiles)
{
    const UniqueFd stale(mkservsocUNIX(longest.c_str()));
    const UniqueFd service(mkservsocUNIX(longest.c_str()));
    const UniqueFd client(mkclisocUNIX(longest.c_str()));
    EXPECT_TRUE(UniqueFd(accept4(service.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
    timeval limit = {9, 9};
    socklen_t size = sizeof(limit);
    getsockopt(client.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, &size);
    EXPECT_EQ(limit.tv_sec, 0) << "only the connecting has a limit";
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

    EXPECT_EQ(mkclisocUNIX(stale.c_str()), -2) << "no listener";
    EXPECT_EQ(mkclisocUNIX((longest + "x").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX((longest + "x").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX(dir.Path("missing/socket").c_str()), -2);
    EXPECT_EQ(mkservsocUNIX((file + "/socket").c_str()), -1);
    EXPECT_EQ(mkservsocUNIX(dir.Path("full").c_str()), -1) << "a directory isn't removed";
    EXPECT_EQ(mkservsocINET(0x10000 + taken.Number()), -2) << "its low 16 bits are taken";

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
    EXPECT_TRUE(link.WriteMessage("<message_box>\nmore", 14) && link.WriteMessage("", 0));
    EXPECT_FALSE(link.WriteMessage("text", -1));
    EXPECT_EQ(server.Received(), "<message_box>\n");

    server.Close();
    EXPECT_FALSE(link.WriteMessage("lost", 4));
    EXPECT_EQ(link.GetRCSDescriptor(), -1);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1) << "it is closed";
    EXPECT_GE(link.SetRCSDescriptor(path.c_str()), 0) << "and its destructor closes it";
}

TEST_F(Sockets, AreWaitedForUnlessTheirNumberIsTooHigh)
{
    const Peer talking;
    const Peer silent;
    const UniqueFd readable(talking.Other());
    const UniqueFd idle(silent.Other());
    talking.Send("x");
    ReadSet set;
    for (const int descriptor : {-3, readable.Get(), idle.Get(), -1, FD_SETSIZE + 10})
        set.Add(descriptor);  // the bit of the last would fall past the end
    EXPECT_EQ(set.Wait(10), 1);
    EXPECT_TRUE(set.Has(readable.Get()));
    EXPECT_FALSE(set.Has(idle.Get()) || set.Has(-1) || set.Has(FD_SETSIZE + 10));
}

TEST(ControllerLink, ReadsAtMost8193BytesAndClosesWithPeer)
{
    const std::string sent = kLongest + "12";
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
        const Controller controller(PortOf(zaurus.SetPortDescriptor()));
        const int id = zaurus.AcceptZaurus();
        const std::tuple<int, int, int> rows[] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                                                  {SOL_SOCKET, SO_SNDTIMEO, 5},
                                                  {IPPROTO_TCP, TCP_USER_TIMEOUT, 90000}};
        for (const auto& [level, option, value] : rows) {
            int set[sizeof(timeval) / sizeof(int)] = {};  // of a time, the seconds come first
            socklen_t size = sizeof(set);
            EXPECT_EQ(getsockopt(id, level, option, set, &size), 0);
            EXPECT_EQ(set[0], isBounded ? value : 0) << option;
        }
    }
}

TEST(ControllerLink, DropsTextsQuietlyWithoutPeer)
{
    std::signal(SIGPIPE, SIG_DFL);
    TZaurusCom zaurus;
    EXPECT_EQ(zaurus.WriteMessage("lost\n", 5), 0);
    EXPECT_EQ(zaurus.AcceptZaurus(), -1) << "it doesn't listen";
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
}

TEST_F(TextService, SendsTextWithItsNulAndCutsLongOne)
{
    sendmes(-1, "lost");
    sendmes(service.Get(), "%s %d%%\r\n", "at", 50);
    sendmes(service.Get(), "%s", "");
    sendmes(service.Get(), "%s", (kLongest + kLongest).c_str());
    EXPECT_EQ(client.Received(), "at 50%\r\n\0\0"s + kLongest.substr(1) + '\0');
    std::signal(SIGPIPE, SIG_DFL);
    client.Close();
    sendmes(service.Get(), "lost");
}

TEST_F(TextService, ReceivesUpToFirstLineEnd)
{
    for (const auto& [sent, text] : {std::pair(" \tGET x \r\nrest"s, "GET x "s),
                                     {"GET\rx", "GET"},
                                     {"\nGET", ""},
                                     {"GET\0x"s, "GET"},
                                     {kLongest, kLongest}}) {
        client.Send(sent);
        EXPECT_EQ(receivemes(service.Get()), text);
    }
    client.Send(kLongest + " rest");
    EXPECT_EQ(receivemes(service.Get()), kLongest);
    EXPECT_STREQ(receivemes(service.Get()), "rest") << "a separate read";
}

TEST_F(TextService, ReceivesLineByLine)
{
    client.Send("one\r\n  two \nthree\0\x80\r"s + kLongest + "y\nlast\nbegun");
    for (const std::string& line : {"one"s, ""s, "two "s, "three"s, "\x80"s, kLongest, "last"s})
        EXPECT_EQ(receivemes2(service.Get()), line);
    shutdown(service.Get(), SHUT_RD);
    EXPECT_EQ(receivemes2(service.Get()), nullptr) << "a line without its end";
    EXPECT_EQ(receivemes(service.Get()), nullptr);
    EXPECT_EQ(client.Received(), "") << "an end is no failure";
}

TEST_F(TextService, ReportsFailedReadToPeer)
{
    fcntl(service.Get(), F_SETFL, O_NONBLOCK);
    EXPECT_EQ(receivemes(service.Get()), nullptr);
    EXPECT_EQ(receivemes2(service.Get()), nullptr);
    const std::string text = "Resource temporarily unavailable\r\n\0"s;
    EXPECT_EQ(client.Received(), text + text);
}

TEST_F(TextService, ReceivesFromStandardInputByLineOnly)
{
    client.Send("line\n");
    const UniqueFd before(dup(STDIN_FILENO));
    dup2(service.Get(), STDIN_FILENO);
    EXPECT_EQ(receivemes(STDIN_FILENO), nullptr);
    EXPECT_STREQ(receivemes2(STDIN_FILENO), "line");
    sendmes(STDIN_FILENO, "sent");
    EXPECT_EQ(client.Received(), "sent\0"s);
    dup2(before.Get(), STDIN_FILENO);
}
