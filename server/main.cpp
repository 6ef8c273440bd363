// The entry of the program: the diagnostic server, or with a file name the stand-alone firmware
// update or the print of the file's version. The exit status is 0 in every mode and after every
// failure; failures show as text on the standard streams and in the logs.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

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

constexpr int kDefaultPort = 4917;
constexpr int kDecimal = 10;

constexpr char kProgramVersion[] = "Diag Server Ver.0.26\n";
constexpr char kNameTooLong[] = "diag_server: file name is too long\n";

// What the program was started without would be the number of its first link, and every text would
// go to the piano. `open` takes the lowest number that is free.
void FillStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", O_RDWR);
    }
}

// What the command line asks for, by default the server.
struct Options {
    int port = kDefaultPort;             // TCP port of the controller
    int connecttype = TMidiCom::kPiano;  // kPiano or kOther; the last option decides
    bool renameFile = false;             // to its version, after a finished update
    bool versionOnly = false;            // counts with a file name only
    char filename[kPathSize] = {};       // empty: run the server
};

// An empty name counts as none and leaves an earlier one. False when it doesn't fit: a cut name
// would be another file.
bool StoreFileName(Options& options, std::string_view name)
{
    if (name.size() >= sizeof(options.filename))
        return false;
    if (!name.empty())
        *std::copy(name.begin(), name.end(), options.filename) = '\0';
    return true;
}

void PrintVersion(const char* filename)
{
    THexFile file;
    if (!file.LoadFromFile(filename))
        return;
    const TSString line = TSString("CSP File Version: ") + file.versionText + "\n";
    line.Print(false);
}

void RunServer(int port)
{
    diag = new TDiagServer;
    if (diag->Initialize(port, TMidiCom::kPiano) >= 0)
        diag->Run();
    delete diag;
    diag = nullptr;
}

void RunUpdate(const Options& options)
{
    updater = new TUpdater;
    if (updater->Initialize(options.renameFile, options.port, options.filename,
                            options.connecttype) >= 0)
        updater->Run();
    delete updater;
    updater = nullptr;
}

void RunMode(const Options& options)
{
    if (options.filename[0] == '\0') {
        RunServer(options.port);
        return;
    }
    Trace(kProgramVersion);
    if (options.versionOnly)
        PrintVersion(options.filename);
    else
        RunUpdate(options);
}

}  // namespace

void usage()
{
    std::fputs("diag_server [-P Port] [-b] [-v] [-f filename]\n", stderr);
}

// False when nothing is to run: the usage was asked for, or the file name doesn't fit.
static bool ParseOptions(int argc, char** argv, Options& options)
{
    int option = 0;
    while ((option = getopt(argc, argv, "hcbvf:a:P:")) != -1) {
        switch (option) {
        case 'h': usage(); return false;
        case 'b':
        case 'c':
            options.connecttype = option == 'b' ? TMidiCom::kPiano : TMidiCom::kOther;
            options.renameFile = true;
            break;
        case 'v': options.versionOnly = true; break;
        case 'f':
        case 'a':
            options.connecttype = option == 'f' ? TMidiCom::kPiano : TMidiCom::kOther;
            if (StoreFileName(options, optarg))
                break;
            std::fputs(kNameTooLong, stderr);
            return false;
        case 'P': options.port = static_cast<int>(std::strtol(optarg, nullptr, kDecimal)); break;
        default: break;  // getopt has printed what is wrong, and the rest counts
        }
    }
    return true;
}

int main(int argc, char** argv)
{
    FillStandardStreams();
    // Each text leaves in one write.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    // A closed standard output must not end an update half way.
    std::signal(SIGPIPE, SIG_IGN);

    Options options;
    if (ParseOptions(argc, argv, options))
        RunMode(options);
    return 0;
}
