#include "Process.h"

#include <stdexcept>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Clock.h"
#include "TempDir.h"

namespace {

constexpr int kNotStarted = 127;
constexpr int kSignalled = 128;

// Which of two variables with one name a program sees is up to whoever starts it.
void AddUnlessNamed(std::vector<std::string>& environment, const std::string& variable)
{
    const std::string name = variable.substr(0, variable.find('=') + 1);
    for (const std::string& present : environment)
        if (present.compare(0, name.size(), name) == 0)
            return;
    environment.push_back(variable);
}

std::vector<char*> Pointers(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

void Redirect(const std::string& path, int target)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, target);
    close(file);
}

void OpenStreams(const Process::Setup& setup)
{
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    close(nothing);
    if (setup.output.empty())
        close(STDOUT_FILENO);
    else
        Redirect(setup.output, STDOUT_FILENO);
    Redirect(setup.error, STDERR_FILENO);
}

}  // namespace

Process::Process(const Setup& begin) : setup(begin)
{
    std::vector<std::string> environment;
    for (const std::string& variable : setup.environment)
        AddUnlessNamed(environment, variable);
    for (char** variable = environ; *variable != nullptr; ++variable)
        AddUnlessNamed(environment, *variable);
    const std::vector<char*> words = Pointers(setup.command);
    const std::vector<char*> variables = Pointers(environment);

    id = fork();
    if (id < 0)
        throw std::runtime_error("no process");
    if (id > 0) {
        if (setup.clock != nullptr)
            setup.clock->Expect(id);
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    OpenStreams(setup);
    if (chdir(setup.directory.c_str()) == 0)
        execvpe(words[0], words.data(), variables.data());
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

int Process::Kill(int signal)
{
    if (IsRunning())
        kill(id, signal);
    return Wait();
}

std::string Process::Output() const
{
    return ReadFile(setup.output);
}

std::string Process::Error() const
{
    return ReadFile(setup.error);
}
