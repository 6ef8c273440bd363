#include "CommandLine.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include <arpa/inet.h>
#include <getopt.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "Number.h"
#include "Text.h"
#include "Trace.h"

namespace {

constexpr int kHighestPort = 65535;
constexpr std::size_t kPortDigits = 5;
constexpr std::uint32_t kFirstGroup = 0xE0000000;  // 224.0.0.0; from there on none is a machine's

constexpr char kHelp[] =
    "diag_server [-P PORT]                    serve a controller\n"
    "diag_server [-b | -c] -f FILE | -a FILE  write FILE into the flash of the CSP board\n"
    "diag_server -v -f FILE                   print the version of FILE\n"
    "diag_server --strict [--verify | --listen ADDRESS] ...\n"
    "                                         the same, with checks before and after\n"
    "\n"
    "  -P PORT     TCP port of the controller, 4917 if left out\n"
    "  -f FILE     an Intel HEX file; the peer is 225\n"
    "  -a FILE     the same; the peer is 229\n"
    "  -b, -c      rename the file after the update to its version; peer 225, 229\n"
    "  -v          print the file's version, and end\n"
    "  -h          print the usage line, and end\n"
    "As the first word only:\n"
    "  --strict    refuse mistakes on the command line and damaged files, keep a second instance\n"
    "              from starting, replace a parameter file and its copy on a medium only with a\n"
    "              complete read-back, whole or not at all; the exit status is 0 after a success,\n"
    "              1 after a failure, 2 after a mistake\n"
    "  --strict --verify\n"
    "              also read the flash back after an update, and compare\n"
    "  --strict --listen ADDRESS\n"
    "              serve a controller at this IPv4 address only\n"
    "  --help      print this, and end\n"
    "  --version   print the program's version, and end\n";

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

bool IsPort(std::string_view text)
{
    const bool isNumber = !text.empty() && text.size() <= kPortDigits && IsAllDigits(text);
    return isNumber && StrToInt(text.data()) >= 1 && StrToInt(text.data()) <= kHighestPort;
}

bool TakeFileName(Options& options, const char* name)
{
    if (*name == '\0')
        options.SetMistake("the file name is empty");
    if (StoreFileName(options, name))
        return true;
    PrintError("file name is too long");
    options.mistake = Options::Mistake::Printed;
    return false;
}

void CheckContradictions(Options& options)
{
    const bool needsFile = options.versionOnly || options.renameFile || options.verify;
    if (needsFile && !options.HasFile())
        options.SetMistake("-v, -b, -c and --verify need a file");
    else if (options.verify && options.versionOnly)
        options.SetMistake("--verify can't be used with -v, which makes no update");
    else if (!options.addressText.empty() && options.HasFile())
        options.SetMistake("--listen can't be used with a file: an update serves no controller");
}

// inet_aton would take a number of fewer parts, too.
bool TakeAddress(Options& options, const char* text)
{
    in_addr address = {};
    if (inet_pton(AF_INET, text, &address) != 1)
        return false;
    options.address = ntohl(address.s_addr);
    options.addressText = text;
    return options.address < kFirstGroup;
}

void ReportMistake(const Options& options)
{
    if (options.mistake == Options::Mistake::Unprinted)
        PrintError(options.mistakeText);
    if (!options.usageIsPrinted)
        usage();
}

// Takes the words that getopt doesn't know from the front, and returns how many.
int TakeStrictWords(int argc, char** argv, Options& options)
{
    int at = 1;
    for (; at < argc; ++at) {
        const std::string_view word = argv[at];
        if (word == kVerifyWord)
            options.verify = true;
        else if (word != kListenWord)
            break;
        else if (at + 1 < argc && TakeAddress(options, argv[at + 1]))
            ++at;
        else
            options.SetMistake("--listen needs an IPv4 address");
    }
    return at - 1;
}

// The options after the words of --strict. False when nothing is to run.
bool ParseRest(int argc, char** argv, char* program, Options& options)
{
    argv[0] = program;
    if (!ParseOptions(argc, argv, options))
        return false;
    // getopt has moved the words that are no options to the end.
    if (optind < argc)
        options.SetMistake(std::string("not an option: ") + argv[optind]);
    else if (options.mistake == Options::Mistake::None)
        CheckContradictions(options);
    return true;
}

}  // namespace

void usage()
{
    std::fputs("diag_server [-P Port] [-b] [-v] [-f filename]\n", stderr);
}

void PrintHelp()
{
    Trace(kHelp);
}

void PrintError(const std::string& text)
{
    std::fprintf(stderr, "diag_server: %s\n", text.c_str());
}

bool ParseOptions(int argc, char** argv, Options& options)
{
    int option = 0;
    while ((option = getopt(argc, argv, "hcbvf:a:P:")) != -1) {
        switch (option) {
        case 'h':
            usage();
            options.usageIsPrinted = true;
            return false;
        case 'b':
        case 'c':
            options.connecttype = option == 'b' ? TMidiCom::kPiano : TMidiCom::kOther;
            options.renameFile = true;
            break;
        case 'v': options.versionOnly = true; break;
        case 'f':
        case 'a':
            options.connecttype = option == 'f' ? TMidiCom::kPiano : TMidiCom::kOther;
            if (!TakeFileName(options, optarg))
                return false;
            break;
        case 'P':
            // Taken whatever it is: the socket has the low 16 bits of any number.
            options.port = StrToInt(optarg);
            if (!IsPort(optarg))
                options.SetMistake("the port is not a number from 1 to 65535");
            break;
        default: options.mistake = Options::Mistake::Printed; break;  // by getopt
        }
    }
    return true;
}

Request ParseStrictOptions(int argc, char** argv, Options& options)
{
    const int taken = TakeStrictWords(argc, argv, options);
    const bool runs = options.mistake == Options::Mistake::None &&
                      ParseRest(argc - taken, argv + taken, argv[0], options);
    if (options.mistake != Options::Mistake::None) {
        ReportMistake(options);
        return Request::RefuseMistake;
    }
    return runs ? Request::Run : Request::Nothing;
}
