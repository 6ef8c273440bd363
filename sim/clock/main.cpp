// The clock of a unit that a script drives: `simunit` starts it and sends it requests. Time stands
// still at first, and passes only during a request.
//
//   simclock serve PATH [SPEED]    the clock of the participants at PATH; with SPEED time passes by
//                                  itself, so many times as fast as real time
//   simclock expect PATH PID       the process PID was started and will be a participant: lets
//                                  everyone work until all wait, while time stands still
//   simclock pass PATH             lets time pass to the next deadline, and everyone work
//   simclock exit PATH PID         lets time pass until the process has ended
//
// The last three send their words to the first, as one packet at PATH.control, and get an answer.
// Exit status: 1 with a report on standard error when nothing more happens, or when the unit's time
// is over, after a day.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/socket.h>

#include "Clock.h"
#include "UnixAddress.h"

namespace {

constexpr virtualtime::Moment kEnd = virtualtime::kBegin + 86400 * virtualtime::kSecond;
// The script's look costs the start of a command, so there is none before a shorter jump.
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

void SendText(const Descriptor& socket, const std::string& text)
{
    send(socket.Get(), text.data(), text.size(), MSG_NOSIGNAL);
}

// Empty once the other end is gone.
std::string ReceiveText(const Descriptor& socket)
{
    char text[kMostText];
    const ssize_t count = recv(socket.Get(), text, sizeof(text), 0);
    return {text, static_cast<std::size_t>(count > 0 ? count : 0)};
}

// The answer to a request: "ok", or the report.
std::string Answer(Clock& clock, const std::string& request)
{
    std::istringstream words(request);
    std::string word;
    pid_t process = 0;
    words >> word >> process;
    if (word == "expect")
        clock.Expect(process);
    int quietPoints = 0;
    const auto isMet = [&] {
        ++quietPoints;
        return word == "expect" || (word == "exit" ? !clock.Has(process) : quietPoints > 1);
    };
    const virtualtime::Moment step = word == "pass" ? kLookStep : 0;
    return clock.RunUntil(isMet, kEnd - clock.Now(), step) ? "ok" : clock.Report();
}

int Serve(const std::string& path, const char* speed)
{
    constexpr int kBacklog = 8;
    constexpr int kDecimal = 10;
    Clock clock(path);
    const Descriptor listener = ControlSocket(path, bind);
    listen(listener.Get(), kBacklog);
    std::puts("ready");
    std::fflush(stdout);
    if (speed != nullptr)
        clock.RunPaced(static_cast<unsigned>(std::strtoul(speed, nullptr, kDecimal)));
    while (true) {
        const Descriptor script(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!script)
            return 1;
        SendText(script, Answer(clock, ReceiveText(script)));
    }
}

int Request(const std::string& path, const std::string& words)
{
    const Descriptor control = ControlSocket(path, connect);
    SendText(control, words);
    const std::string answer = ReceiveText(control);
    if (answer == "ok")
        return 0;
    std::fputs(answer.c_str(), stderr);
    return 1;
}

}  // namespace

int main(int argc, char** argv)
{
    Words words(argv + 1, argv + argc);
    words.resize(3);
    const bool needsProcess = words[0] == "expect" || words[0] == "exit";
    try {
        if (words[0] == "serve" && argc >= 3)
            return Serve(words[1], argv[3]);
        if ((words[0] == "pass" && argc == 3) || (needsProcess && argc == 4))
            return Request(words[1], words[0] + " " + words[2]);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "simclock: %s\n", failure.what());
        return 2;
    }
    std::fputs("simclock serve PATH [SPEED] | expect PATH PID | pass PATH | exit PATH PID\n",
               stderr);
    return 2;
}
