// The entry of the program: the diagnostic server, or with a file name the stand-alone firmware
// update or the print of the file's version. The exit status is 0 in every mode and after every
// failure; failures show as text on the standard streams and in the logs.

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <getopt.h>

#include "TDiagServer.h"
#include "THexFile.h"
#include "TSString.h"
#include "TUpdater.h"

// The mode's main object. Only main sets and reads them.
TDiagServer* diag = nullptr;
TUpdater* updater = nullptr;

namespace {

constexpr int kDefaultPort = 4917;
constexpr int kPiano = 225;  // connect types
constexpr int kOther = 229;
constexpr int kDecimal = 10;

void PrintVersion(const char* filename)
{
    auto* file = new THexFile;
    if (file->LoadFromFile(filename)) {
        const TSString line = TSString("CSP File Version: ") + file->versionText + "\n";
        line.Print(false);
    }
    delete file;
}

void RunServer(int port)
{
    diag = new TDiagServer;
    if (diag->Initialize(port, kPiano) >= 0)
        diag->Run();
    delete diag;
    diag = nullptr;
}

void RunUpdate(bool renameFile, int port, const char* filename, int connecttype)
{
    updater = new TUpdater;
    if (updater->Initialize(renameFile, port, filename, connecttype) >= 0)
        updater->Run();
    delete updater;
    updater = nullptr;
}

}  // namespace

void usage()
{
    std::fprintf(stderr, "diag_server [-P Port] [-b] [-v] [-f filename]\n");
}

int main(int argc, char** argv)
{
    int port = kDefaultPort;
    int connecttype = kPiano;
    bool renameFile = false;
    bool versionOnly = false;
    char filename[TUpdater::kTextSize] = {};

    std::setvbuf(stdout, nullptr, _IONBF, 0);
    // A closed standard output must not end an update half way.
    std::signal(SIGPIPE, SIG_IGN);

    int option = 0;
    while ((option = getopt(argc, argv, "hcbvf:a:P:")) != -1) {
        switch (option) {
        case 'h': usage(); return 0;
        case 'c':
            connecttype = kOther;
            renameFile = true;
            break;
        case 'b':
            connecttype = kPiano;
            renameFile = true;
            break;
        case 'v': versionOnly = true; break;
        case 'f':
        case 'a': {
            connecttype = option == 'f' ? kPiano : kOther;
            const std::size_t length = std::strlen(optarg);
            if (length >= sizeof(filename)) {
                // A cut name would be another file.
                std::fprintf(stderr, "diag_server: file name is too long\n");
                return 0;
            }
            if (length > 0)
                std::memcpy(filename, optarg, length + 1);
            break;
        }
        case 'P': port = static_cast<int>(std::strtol(optarg, nullptr, kDecimal)); break;
        default: break;  // getopt has told it
        }
    }

    if (filename[0] == '\0') {
        RunServer(port);
        return 0;
    }
    std::printf("Diag Server Ver.0.26\n");
    if (versionOnly)
        PrintVersion(filename);
    else
        RunUpdate(renameFile, port, filename, connecttype);
    return 0;
}
