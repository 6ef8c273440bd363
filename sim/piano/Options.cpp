#include "Options.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr uint32_t kPage = 0x10000;

constexpr char kUsage[] =
    "Usage: simpiano --root DIR [options]\n"
    "Simulates the piano's side of the unit: the MIDI Patcher (DIR/home/i2c_server_sock), the CSP\n"
    "connected to it and the RC Server (DIR/tmp/rcseq_socket). Prints \"ready\" when the program\n"
    "of the unit can be started, and runs until SIGTERM.\n\n";

constexpr char kFiles[] =
    "\nFiles in DIR/sim:\n"
    "  midi.log   what passed on the MIDI Patcher's link, what was wrong with it as \"bad ...\",\n"
    "             and at the end how many frames were received and sent\n"
    "  rc.log     what the RC Server received\n"
    "  dsp.sock   takes \"3072\" (the piano side is switched off) and \"3073\" (on)\n"
    "  say        write it while simpiano runs: its lines are sent as one message as soon as the\n"
    "             link is up, and it is removed. With the line \"@faults OPTIONS\" the CSP and "
    "the\n"
    "             link take these options and drop all others\n"
    "\nExit status: 0; 3 if the system has sent anything bad; 2 if the start failed.\n";

template <typename Number>
bool ParseNumber(const std::string& text, int radix, Number* value)
{
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, *value, radix);
    return result.ec == std::errc() && result.ptr == end && !text.empty();
}

// One reader for each kind of target.
struct Reader {
    const std::string& text;

    bool operator()(bool* flag) const { return *flag = true; }
    bool operator()(int* count) const { return ParseNumber(text, 10, count) && *count >= 0; }
    bool operator()(uint32_t* value) const { return ParseHex(text, value); }
    bool operator()(std::optional<uint32_t>* value) const { return (*this)(&value->emplace()); }
    bool operator()(std::vector<uint32_t>* all) const { return (*this)(&all->emplace_back()); }
    bool operator()(std::string* word) const { return !(*word = text).empty(); }
};

}  // namespace

// clang-format off
std::vector<Options::Option> Options::Table()
{
    return {
        {"--root", "DIR", "the unit's directory", &root},
        {"--help", "", "print this", &help},

        {"--size", "BYTES", "its size, from 90000000 on (400000)", &size,
         "Flash (addresses and sizes are hexadecimal)"},
        {"--load", "FILE[@ADDR]", "its first content, from its start or from ADDR", &loadFile},
        {"--save", "FILE", "is saved there after each finished write and at the end", &saveFile},

        {"--no-patcher", "", "no MIDI Patcher", &noPatcher, "Which peers run"},
        {"--no-rc", "", "no RC Server", &noRcServer},
        {"--late", "SECONDS", "the MIDI Patcher listens only so long after \"ready\"",
         &patcherLate},
        {"--rc-late", "SECONDS", "the same for the RC Server", &rcServerLate},

        {"--silent", "", "never sends anything", &csp.silent, "The CSP"},
        {"--no-status", "", "no answer to STATUS", &csp.noStatus},
        {"--garbage", "N", "N unwanted lines before each answer, not before records", &csp.garbage},
        {"--garbage-endless", "", "unwanted lines and nothing else", &csp.garbageEndless},

        {"--ng-at", "ADDR", "refuses the record with ADDR, once; may be repeated", &csp.ngAt,
         "The CSP, writing its flash"},
        {"--allow-gaps", "", "accepts data that leaves a gap after the last record",
         &csp.allowGaps},
        {"--fail", "N", "the first N writes end in \"Failed\"", &csp.failures},

        {"--read-stop", "ADDR", "the end-of-file record comes there, whatever was requested",
         &csp.readStop, "The CSP, sending its flash"},
        {"--read-cut", "BYTES", "records end at each multiple of this divisor of 10000 (1000)",
         &csp.readCut},
        {"--bad-checksum-at", "ADDR", "a wrong checksum in the record with ADDR",
         &csp.badChecksumAt},

        {"--cut-frames", "K", "cuts messages into writes of K bytes, each when the last is read",
         &link.pieceBytes, "The link (a message is a line's frames and goes out in one write)"},
        {"--join", "", "as many messages in one write as fit into 7000 bytes", &link.join},
        {"--cut-link-after", "K", "drops the link after the K-th frame from the system",
         &link.cutAfter},
        {"--cut-link-every", "K", "... after every K-th frame", &link.cutEvery},
        {"--die-after", "K", "ends the process after the K-th frame", &link.dieAfter},
        {"--cut-after-sent", "K", "drops the link after the K-th frame to the system",
         &link.cutAfterSent},
        {"--die-after-sent", "K", "ends the process after the K-th frame to the system",
         &link.dieAfterSent},
    };
}
// clang-format on

std::string Options::Parse(const std::vector<std::string>& arguments)
{
    const std::vector<Option> table = Table();
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        const auto option = std::find_if(table.begin(), table.end(),
                                         [&](const Option& each) { return name == each.name; });
        if (option == table.end())
            return name + ": no such option";
        const bool isFlag = option->argument[0] == '\0';
        if (!isFlag && ++i == arguments.size())
            return name + " needs " + option->argument;
        if (!std::visit(Reader{arguments[i]}, option->target))
            return name + " " + arguments[i] + ": not a valid " + option->argument;
    }
    const bool isDivisor = csp.readCut > 0 && kPage % csp.readCut == 0;
    return isDivisor ? "" : "--read-cut must divide 10000";
}

std::string Options::HelpText()
{
    constexpr size_t kColumn = 25;
    std::string text = kUsage;
    for (const Option& option : Options().Table()) {
        if (option.heading != nullptr)
            text += std::string("\n") + option.heading + ":\n";
        std::string left = std::string("  ") + option.name + " " + option.argument + " ";
        left.resize(std::max(kColumn, left.size()), ' ');
        text += left + option.help + "\n";
    }
    return text + kFiles;
}

bool ParseHex(const std::string& text, uint32_t* value)
{
    return ParseNumber(text, 16, value);
}
