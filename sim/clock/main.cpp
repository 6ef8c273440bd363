// The clock of a unit that a script drives: `simunit` starts it and sends it requests. Time stands
// still at first, and passes only while a script waits with `until`.
//
//   simclock serve PATH [SPEED]            the clock of the participants at PATH; with SPEED time
//                                          passes by itself, so many times as fast as real time
//   simclock expect PATH PID               the process PID was started and will be a participant
//   simclock until PATH exit PID           lets time pass until the process has ended
//   simclock until PATH run COMMAND...     ... until the command succeeds
//
// The last three send their request to the first, at PATH.control, and get an answer: one line
// each, such as "until" and "ok". During an `until` the clock sends "look", and the client answers
// "yes" or "no". Exit status: 1 with a report on standard error when nothing more happens, or not
// within a day of the unit's time.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Clock.h"
#include "UnixAddress.h"

namespace {

constexpr virtualtime::Moment kDay = 86400 * virtualtime::kSecond;
// A check costs the start of a command, so there is none before a shorter jump.
constexpr virtualtime::Moment kLookStep = virtualtime::kSecond / 100;
constexpr std::size_t kMostText = 4096;

using Words = std::vector<std::string>;

// A packet socket at PATH.control, bound or connected by `call`. Throws std::runtime_error.
template <typename Call>
Descriptor ControlSocket(const std::string& path, Call call)
{
    const std::string control = path + ".control";
    const UnixAddress address(control.c_str());
    Descriptor made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!address.Fits() || call(made.Get(), address.Get(), UnixAddress::kSize) != 0)
        throw std::runtime_error(control + ": " + std::strerror(errno));
    return made;
}

bool SendText(int socket, const std::string& text)
{
    return send(socket, text.data(), text.size(), MSG_NOSIGNAL) >= 0;
}

// Empty once the other end is gone.
std::string ReceiveText(int socket)
{
    char text[kMostText];
    const ssize_t count = recv(socket, text, sizeof(text), 0);
    return {text, static_cast<std::size_t>(count > 0 ? count : 0)};
}

// 0 if the text is no number.
int Number(const std::string& text)
{
    constexpr int kDecimal = 10;
    return static_cast<int>(std::strtol(text.c_str(), nullptr, kDecimal));
}

// The answer to a request: "ok", or the report.
std::string Answer(Clock& clock, int asker, const std::string& asked)
{
    if (asked != "until") {
        clock.Expect(Number(asked));
        return "ok";
    }
    const auto isMet = [&] {
        const bool isThere = SendText(asker, "look");
        return !isThere || ReceiveText(asker) != "no";
    };
    return clock.RunUntil(isMet, kDay, kLookStep) ? "ok" : clock.Report();
}

int Serve(const std::string& path, const std::string& speed)
{
    constexpr int kBacklog = 8;
    Clock clock(path);
    const Descriptor listener = ControlSocket(path, bind);
    listen(listener.Get(), kBacklog);
    std::puts("ready");
    std::fflush(stdout);
    if (!speed.empty())
        clock.RunPaced(static_cast<unsigned>(Number(speed)));
    while (true) {
        const Descriptor asker(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!asker)
            return 1;
        SendText(asker.Get(), Answer(clock, asker.Get(), ReceiveText(asker.Get())));
    }
}

bool HasEnded(int pidfd)
{
    pollfd watched = {pidfd, POLLIN, 0};
    return pidfd < 0 || poll(&watched, 1, 0) > 0;
}

bool Succeeds(const Words& command)
{
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> words;
        for (const std::string& word : command)
            words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        const int nothing = open("/dev/null", O_WRONLY);
        dup2(nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        execvp(words[0], words.data());
        _exit(127);
    }
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

int Ask(const Words& words)
{
    const Descriptor control = ControlSocket(words[1], connect);
    const int clock = control.Get();
    const bool waits = words[0] == "until";
    const bool forExit = waits && words[2] == "exit";
    const int pidfd = forExit ? static_cast<int>(syscall(SYS_pidfd_open, Number(words[3]), 0)) : -1;
    SendText(clock, waits ? "until" : words[2]);
    std::string text;
    while ((text = ReceiveText(clock)) == "look") {
        const bool isMet = forExit ? HasEnded(pidfd) : Succeeds({words.begin() + 3, words.end()});
        SendText(clock, isMet ? "yes" : "no");
    }
    if (text == "ok")
        return 0;
    std::fputs(text.c_str(), stderr);
    return 1;
}

}  // namespace

int main(int argc, char** argv)
{
    const Words words(argv + 1, argv + argc);
    try {
        if ((words.size() == 2 || words.size() == 3) && words[0] == "serve")
            return Serve(words[1], words.size() == 3 ? words[2] : "");
        if ((words.size() == 3 && words[0] == "expect") ||
            (words.size() > 3 && words[0] == "until"))
            return Ask(words);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "simclock: %s\n", failure.what());
        return 2;
    }
    std::fputs(
        "simclock serve PATH [SPEED] | expect PATH PID | until PATH exit PID|run COMMAND...\n",
        stderr);
    return 2;
}
