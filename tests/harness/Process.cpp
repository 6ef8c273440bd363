#include "Process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Clock.h"
#include "Texts.h"

namespace {

constexpr int kNotStarted = 127;
constexpr int kSignalled = 128;

// Replaces a stream by the file, or closes it without a path. The lower streams are open.
void Reopen(int stream, const std::string& path, int flags = O_WRONLY | O_CREAT | O_TRUNC)
{
    close(stream);
    if (!path.empty())
        open(path.c_str(), flags, 0600);
}

}  // namespace

Process::Process(const Setup& begin) : setup(begin)
{
    id = fork();
    Check(id >= 0, "no process");
    if (id > 0) {
        if (setup.clock != nullptr)
            setup.clock->Expect(id);
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Reopen(STDIN_FILENO, "/dev/null", O_RDONLY);
    Reopen(STDERR_FILENO, setup.error);
    Reopen(STDOUT_FILENO, setup.output);
    for (std::string& variable : setup.environment)
        putenv(variable.data());
    std::vector<char*> words;
    for (std::string& word : setup.command)
        words.push_back(word.data());
    words.push_back(nullptr);
    if (chdir(setup.directory.c_str()) == 0)
        execvp(words[0], words.data());
    _exit(kNotStarted);
}

Process::~Process()
{
    if (ended)
        return;
    kill(id, SIGKILL);
    waitpid(id, nullptr, 0);
}

bool Process::IsRunning()
{
    int state = 0;
    if (!ended && waitpid(id, &state, WNOHANG) == id) {
        ended = true;
        status = WIFEXITED(state) ? WEXITSTATUS(state) : kSignalled + WTERMSIG(state);
    }
    return !ended;
}

int Process::Wait(std::chrono::nanoseconds limit)
{
    WaitUntil([this] { return !IsRunning(); }, limit);
    return status;
}

std::string Process::Error() const
{
    std::string error = ReadFile(setup.error);
    Check(!Contains(error, "Sanitizer") && !Contains(error, "runtime error"), error);
    return error;
}

int Process::Kill(int signal)
{
    if (IsRunning())
        kill(id, signal);
    return Wait();
}
