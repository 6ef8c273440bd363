#include <csignal>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Connection.h"
#include "TextService.h"
#include "UniqueFd.h"

using namespace std::string_literals;

namespace {

const std::string kLongest(8192, 'x');

// A client of the service, and the service's end of their connection.
struct TextService : testing::Test {
    Peer client;
    UniqueFd service{client.Other()};
};

}  // namespace

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
