// The entry of the program: the diagnostic server, or with a file name the stand-alone firmware
// update or the print of the file's version. Without --strict the exit status is 0 in every mode
// and after every failure; failures show as text on the standard streams and in the logs.

#include <csignal>
#include <cstdio>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include "CommandLine.h"
#include "Strict.h"
#include "TDiagServer.h"
#include "THexFile.h"
#include "TMidiCom.h"
#include "TSString.h"
#include "TUpdater.h"
#include "Trace.h"
#include "UnitPaths.h"

// The mode's main object. Only main sets and reads them.
TDiagServer* diag = nullptr;
TUpdater* updater = nullptr;

namespace {

// The exit statuses with --strict.
enum ExitStatus { Success = 0, Failure = 1, Usage = 2 };

// A standard stream that was closed at the start would be the number of the first link, and every
// text would go to the piano. `open` takes the lowest number that is free.
void FillStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) < 0)
            static_cast<void>(open(kNowhere, O_RDWR));
    }
}

void PrintVersion(const char* filename)
{
    THexFile file;
    if (!file.LoadFromFile(filename))
        return;
    TUpdater::VersionLine(file.versionText).Print(false);
}

// Each run returns 0 when it has done its work.

int RunServer(const Options& options, Strict* strict)
{
    diag = new TDiagServer;
    if (strict != nullptr)
        diag->SetStrict(strict, options.address);
    int result = diag->Initialize(options.port, TMidiCom::kPiano);
    if (result == 0)
        result = diag->Run();
    delete diag;
    diag = nullptr;
    return result;
}

int RunUpdate(const Options& options, Strict* strict)
{
    updater = new TUpdater;
    if (strict != nullptr)
        updater->BoundWaits();
    int result = updater->Initialize(options.renameFile, options.port, options.filename,
                                     options.connecttype);
    if (result == 0 && strict != nullptr && !strict->RequireSame(options, updater->GetImage()))
        result = kNoFile;
    if (result == 0)
        result = updater->Run();
    if (strict != nullptr)
        strict->TakeRestart(updater->GetRestartError());
    delete updater;
    updater = nullptr;
    return result;
}

// Without --strict `strict` is null. -v is ignored without a file name.
int RunMode(const Options& options, Strict* strict)
{
    if (!options.HasFile())
        return RunServer(options, strict);
    Trace(kProgramVersion);
    if (!options.versionOnly)
        return RunUpdate(options, strict);
    PrintVersion(options.filename);
    return 0;
}

int RunStrictly(int argc, char** argv)
{
    Options options;
    if (const Request request = ParseStrictOptions(argc, argv, options); request != Request::Run)
        return request == Request::Nothing ? Success : Usage;
    Strict strict(options);
    if (!strict.Prepare(options))
        return Failure;
    const int result = RunMode(options, &strict);
    return strict.Finish(options, result) ? Success : Failure;
}

}  // namespace

int main(int argc, char** argv)
{
    FillStandardStreams();
    // Each text leaves in one write.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    // A closed standard output must not end an update half way.
    std::signal(SIGPIPE, SIG_IGN);

    const std::string_view first = argc > 1 ? argv[1] : "";
    if (first == kHelpWord) {
        PrintHelp();
        return 0;
    }
    if (first == kVersionWord) {
        Trace(kProgramVersion);
        return 0;
    }
    if (first == kStrictWord) {
        // getopt takes the first word for the program's name and begins with the second.
        argv[1] = argv[0];
        return RunStrictly(argc - 1, argv + 1);
    }
    Options options;
    if (ParseOptions(argc, argv, options))
        RunMode(options, nullptr);
    return 0;
}
