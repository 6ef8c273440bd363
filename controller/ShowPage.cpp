#include <cerrno>
#include <cstdio>
#include <cstring>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Command.h"
#include "HexFormat.h"

namespace {

constexpr char kOpener[] = "xdg-open";
constexpr char kThisProgram[] = "/proc/self/exe";

// Relative to the program, wherever the package is installed. Empty when the program isn't found.
std::string PagePath()
{
    char program[0x1000] = {};
    if (readlink(kThisProgram, program, sizeof(program) - 1) < 0)
        return {};
    const std::string path = program;
    const std::string prefix = path.substr(0, path.rfind('/', path.rfind('/') - 1));
    return prefix + "/share/diagctl/firmware.html";
}

Outcome OpenInBrowser(std::string path)
{
    std::string opener = kOpener;
    char* const words[] = {opener.data(), path.data(), nullptr};
    pid_t child = 0;
    const int error = posix_spawnp(&child, kOpener, nullptr, nullptr, words, environ);
    if (error != 0)
        return {Status::Failed, opener + ": " + std::strerror(error)};
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0 ? Outcome() : Outcome{Status::Failed, opener + " could not open " + path};
}

}  // namespace

Outcome ShowPage(const Invocation& invocation)
{
    const std::string path = PagePath();
    if (path.empty())
        return {Status::Failed, std::string(kThisProgram) + ": " + std::strerror(errno)};
    if (access(path.c_str(), R_OK) != 0)
        return {Status::Failed, path + ": " + std::strerror(errno) +
                                    "; this package of diagctl was made without the page"};
    PrintLines(path + kLf);
    std::fflush(stdout);  // a browser may keep the program waiting
    return invocation.open ? OpenInBrowser(path) : Outcome();
}
