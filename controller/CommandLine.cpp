#include "CommandLine.h"

#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <map>
#include <numeric>
#include <sstream>
#include <utility>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "Exchange.h"
#include "ImageFile.h"
#include "Session.h"
#include "Upgrade.h"

namespace {

constexpr double kLeastTime = 0.001;  // seconds
constexpr double kMostTime = 1e6;
constexpr int kMostPort = 65535;
constexpr std::size_t kHelpColumn = 26;
constexpr char kVersionCommand[] = "version";
constexpr char kSwitch[] = "SWITCH";  // its argument
constexpr char kOtherPeer[] = "229";  // its flash isn't known
// The first word when a shell asks what could complete the last one.
constexpr char kCompleteWord[] = "complete";

using Words = std::vector<std::string>;
// Adds options or arguments to a command.
using Add = void (*)(CLI::App& command, Invocation& invocation);

// What the help calls the parts of a command line.
constexpr std::pair<const char*, const char*> kHelpLabels[] = {
    {"OPTIONS", "OPTION..."},     {"SUBCOMMAND", "COMMAND"}, {"Subcommands", "Commands"},
    {"Positionals", "Arguments"}, {"REQUIRED", ""},
};

// The words that an option or argument takes, and what each means.
using Choices = std::vector<std::pair<std::string, std::string>>;

Choices SwitchWords()
{
    return {{"on", "the unit answers with its release"},
            {"off", "the unit answers with the service text"}};
}

Choices Peers()
{
    return {{"225", "the CSP"}, {kOtherPeer, "the other board"}};
}

// A number that is no number is in no range.
CLI::Validator InRange(double least, double most)
{
    const auto check = [least, most](const std::string& text) {
        double value = 0;
        const bool isInside =
            CLI::detail::lexical_cast(text, value) && value >= least && value <= most;
        if (isInside)
            return std::string();
        std::ostringstream wrong;
        wrong << text << " is not a number from " << least << " to " << std::fixed
              << std::setprecision(0) << most;
        return wrong.str();
    };
    return {check, ""};
}

void AddWord(const char* name, const char* help, CLI::App& command, Invocation& invocation)
{
    const auto keep = [&invocation](const std::string& word) {
        invocation.arguments.push_back(word);
    };
    command.add_option_function<std::string>(name, keep, help)->required()->type_name("");
}

void AddFiles(CLI::App& command, Invocation& invocation)
{
    command
        .add_option("FILE", invocation.arguments,
                    "a .hex, .bin or .rlg file; - is .hex on standard input")
        ->required()
        ->type_name("");
}

void AddInAndOut(CLI::App& command, Invocation& invocation)
{
    AddWord("IN", "the file to read: .hex, .bin or .rlg", command, invocation);
    AddWord("OUT", "the file to write, in another of these forms", command, invocation);
}

void AddFileAndDirectory(CLI::App& command, Invocation& invocation)
{
    AddWord("FILE", "a .hex, .bin or .rlg file", command, invocation);
    AddWord("DIR", "where the medium is mounted", command, invocation);
}

void AddTwoFiles(CLI::App& command, Invocation& invocation)
{
    AddWord("A", "a .hex, .bin or .rlg file", command, invocation);
    AddWord("B", "another one", command, invocation);
}

void AddBytes(CLI::App& command, Invocation& invocation)
{
    command.add_option("BYTES", invocation.arguments, "up to 8192 bytes, two hex digits each")
        ->required()
        ->type_name("");
}

void AddOnOff(CLI::App& command, Invocation& invocation)
{
    command
        .add_option(
            kSwitch, invocation.arguments,
            "on, off: from now on the unit answers with the\nrelease, or with the service text")
        ->expected(0, 1)
        ->check(CLI::IsMember(SwitchWords()).description(""))
        ->type_name("");
}

void AddUnit(CLI::App& command, Invocation& invocation)
{
    command.add_option("--host", invocation.host, "the unit's address, 127.0.0.1 if left out")
        ->type_name("HOST");
    command.add_option("--port", invocation.port, "its port, 4917 if left out")
        ->check(InRange(1, kMostPort))
        ->type_name("PORT");
    command
        .add_option("--timeout", invocation.timeoutSeconds,
                    "give up after so many seconds of silence, by default 15\n"
                    "for an answer and 120 while the unit works; monitor\n"
                    "waits forever")
        ->check(InRange(kLeastTime, kMostTime))
        ->type_name("SECONDS");
    command
        .add_option("--wait", invocation.waitSeconds,
                    "try again for so long while the unit can't be reached\nor is busy")
        ->check(InRange(kLeastTime, kMostTime))
        ->type_name("SECONDS");
    command.add_flag("--verbose", invocation.verbose,
                     "also print the bytes on the wire to standard error");
}

void AddJson(CLI::App& command, Invocation& invocation)
{
    command.add_flag("--json", invocation.json, "one JSON object per line, for other programs");
}

void AddQuiet(CLI::App& command, Invocation& invocation)
{
    command.add_flag("--quiet", invocation.quiet, "print only the answer");
}

void AddPeer(CLI::App& command, Invocation& invocation)
{
    const auto choose = [&invocation](const std::string& peer) {
        invocation.outsideFlash = peer == kOtherPeer ? Severity::Warning : Severity::Error;
    };
    command
        .add_option_function<std::string>("--peer", choose,
                                          "225, the CSP, by default; 229, whose flash isn't\n"
                                          "known: data outside the CSP's is only a warning")
        ->check(CLI::IsMember(Peers()).description(""))
        ->type_name("PEER");
}

void AddAll(CLI::App& command, Invocation& invocation)
{
    command.add_flag("--all", invocation.all,
                     "more than the first 20 findings, up to 1,000, and\n20 ranges");
}

void AddSvg(CLI::App& command, Invocation& invocation)
{
    const auto isPicture = [](const std::string& name) {
        return FormOf(name) ? "it takes the name of a picture, not of an image" : std::string();
    };
    command.add_option("--svg", invocation.svg, "the picture as an SVG document")
        ->check(CLI::Validator(isPicture, ""))
        ->type_name("FILE");
}

void AddForce(CLI::App& command, Invocation& invocation)
{
    command.add_flag("--force", invocation.force, "overwrite the target");
}

void AddOpen(CLI::App& command, Invocation& invocation)
{
    command.add_flag("--open", invocation.open, "open it, too");
}

void AddUpgrade(CLI::App& command, Invocation& invocation)
{
    command.add_option("--expect", invocation.expected, "update only to this version")
        ->type_name("VERSION");
    command.add_flag("--yes", invocation.yes, "don't ask");
    command.add_flag("--dry-run", invocation.dryRun, "search and compare only");
}

struct Command {
    std::string name;
    std::string help;
    Outcome (*run)(const Invocation&);
    std::vector<Add> adds;  // its arguments, then its options
};

// The commands for the unit come from what goes out for them.
std::vector<Command> MakeCommands()
{
    std::vector<Command> commands = {
        {"check",
         "show the damage, content and picture of image files",
         CheckFiles,
         {AddFiles, AddAll, AddPeer, AddSvg, AddQuiet, AddJson}},
        {"convert",
         "make one of .hex, .bin and .rlg from another",
         ConvertImage,
         {AddInAndOut, AddForce, AddPeer, AddJson}},
        {"diff",
         "where two images differ",
         CompareImages,
         {AddTwoFiles, AddPeer, AddSvg, AddQuiet, AddJson}},
        {"prepare",
         "check a firmware file and write it to a medium for the unit",
         PrepareMedium,
         {AddFileAndDirectory, AddJson}},
        {"page", "print the path of the page that does the same in a browser", ShowPage, {AddOpen}},
        {"upgrade",
         "update the piano from the medium in the unit: search, ask, write",
         Upgrade,
         {AddUpgrade, AddUnit, AddQuiet, AddJson}},
    };
    for (const Query& query : Queries()) {
        if (query.command.find(' ') != std::string_view::npos)
            continue;  // an argument of the command before it
        Command command = {std::string(query.command), std::string(query.help), Ask, {}};
        if (query.wait == Wait::Window) {
            command.run = SendBytes;
            command.adds.push_back(AddBytes);
        }
        if (query.command == kVersionCommand)
            command.adds.push_back(AddOnOff);
        command.adds.insert(command.adds.end(), {AddUnit, AddQuiet, AddJson});
        commands.push_back(std::move(command));
    }
    return commands;
}

std::string StatusText()
{
    std::string text = "Exit status:";
    for (const StatusMeaning& each : kStatusMeanings)
        text += "\n  " + std::to_string(static_cast<int>(each.status)) + "  " + each.text;
    return text;
}

bool IsOption(const std::string& word)
{
    return word.size() > 1 && word[0] == '-';
}

bool TakesValue(const CLI::Option& option)
{
    return option.get_items_expected_max() > 0;
}

// How many characters must be changed, added or left out to make one word of the other.
std::size_t Distance(const std::string& from, const std::string& to)
{
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

void PrintCompletion(const std::string& word, const std::string& meaning)
{
    std::printf("%s\t%s\n", word.c_str(), meaning.substr(0, meaning.find('\n')).c_str());
}

void PrintChoices(const Choices& choices)
{
    for (const auto& [word, meaning] : choices)
        PrintCompletion(word, meaning);
}

// A line of its own means names of files.
void PrintFiles()
{
    std::printf(":files\n");
}

// The program's command line, with the values of its options.
class CommandLine {
public:
    CommandLine();

    Status Run(Words words);
    // Prints what can stand in the place of the last word.
    void Complete(Words words) const;

private:
    std::string MoveCommandToFront(Words& words) const;
    const CLI::App* CommandNamed(const std::string& name) const;
    const CLI::Option* OptionOf(const std::string& word) const;
    std::string Suggestion(const std::string& word) const;
    void CompleteValue(const CLI::Option& option) const;
    void CompleteOption(const CLI::App* command) const;
    void CompleteArgument(const CLI::App& command) const;

    Invocation invocation;
    std::vector<Command> commands = MakeCommands();
    CLI::App app{"The technician's tool for a piano's control unit and its firmware files.",
                 "diagctl"};
};

CommandLine::CommandLine()
{
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", "this text, or a command's");
    app.set_version_flag("--version", "diagctl " DIAGCTL_VERSION, "the version of this program");
    const auto help = app.get_formatter();
    help->column_width(kHelpColumn);
    for (const auto& [label, text] : kHelpLabels)
        help->label(label, text);
    app.footer(StatusText());
    for (const Command& command : commands) {
        CLI::App* const sub = app.add_subcommand(command.name, command.help);
        sub->footer("");
        for (const Add add : command.adds)
            add(*sub, invocation);
        sub->final_callback([this, &command] {
            invocation.command = command.name;
            invocation.run = command.run;
        });
    }
}

Status CommandLine::Run(Words words)
{
    // How an error is shown depends on the rest of the line.
    const bool isJson = std::find(words.begin(), words.end(), "--json") != words.end();
    std::string wrong = MoveCommandToFront(words);
    try {
        if (wrong.empty()) {
            std::reverse(words.begin(), words.end());
            app.parse(std::move(words));
            return Finish(invocation, invocation.run(invocation));
        }
    } catch (const CLI::CallForHelp&) {
        std::printf("%s", app.help().c_str());
        return Finish({}, {});
    } catch (const CLI::CallForVersion& version) {
        std::printf("%s\n", version.what());
        return Finish({}, {});
    } catch (const CLI::ParseError& error) {
        wrong = error.what();
    }
    invocation.json = isJson;
    return Finish(invocation, WrongUsage(wrong));
}

// Options may stand before the command that they belong to. Returns what is wrong, or nothing.
std::string CommandLine::MoveCommandToFront(Words& words) const
{
    auto word = words.begin();
    while (word != words.end() && IsOption(*word)) {
        const CLI::Option* const option = OptionOf(*word);
        const bool isValueNext =
            option != nullptr && TakesValue(*option) && word->find('=') == std::string::npos;
        word += isValueNext && word + 1 != words.end() ? 2 : 1;
    }
    const auto isOfProgram = [](const std::string& each) {
        return each == "-h" || each == "--help" || each == "--version";
    };
    if (word == words.end())
        return std::any_of(words.begin(), word, isOfProgram) ? "" : "no command";
    if (*word == "help") {
        words.erase(word);
        words.emplace_back("--help");
        return {};
    }
    if (CommandNamed(*word) == nullptr)
        return "no such command: " + *word + Suggestion(*word);
    std::rotate(words.begin(), word, word + 1);
    return {};
}

// Null when there is none.
const CLI::App* CommandLine::CommandNamed(const std::string& name) const
{
    const auto found =
        app.get_subcommands([&](const CLI::App* each) { return each->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

// The option of any command; null when none has it.
const CLI::Option* CommandLine::OptionOf(const std::string& word) const
{
    const std::string name = word.substr(0, word.find('='));
    for (const Command& command : commands) {
        const CLI::Option* const option =
            app.get_subcommand(command.name)->get_option_no_throw(name);
        if (option != nullptr)
            return option;
    }
    return nullptr;
}

std::string CommandLine::Suggestion(const std::string& word) const
{
    constexpr std::size_t kMostWrong = 2;  // characters
    const auto nearest = std::min_element(
        commands.begin(), commands.end(), [&](const Command& left, const Command& right) {
            return Distance(word, left.name) < Distance(word, right.name);
        });
    const bool isNear = Distance(word, nearest->name) <= kMostWrong;
    return isNear ? " (did you mean " + nearest->name + "?)" : "";
}

void CommandLine::Complete(Words words) const
{
    if (words.empty())
        words.emplace_back();
    const std::string current = words.back();
    words.pop_back();
    const CLI::Option* const last = words.empty() ? nullptr : OptionOf(words.back());
    if (last != nullptr && TakesValue(*last))
        return CompleteValue(*last);
    const bool hasCommand = MoveCommandToFront(words).empty() && !words.empty();
    const CLI::App* const command = hasCommand ? CommandNamed(words.front()) : nullptr;
    if (!current.empty() && current[0] == '-')
        return CompleteOption(command);
    if (command != nullptr)
        return CompleteArgument(*command);
    for (const Command& each : commands)
        PrintCompletion(each.name, each.help);
}

void CommandLine::CompleteValue(const CLI::Option& option) const
{
    if (option.get_type_name() == "FILE")
        return PrintFiles();
    if (option.get_type_name() == "PEER")
        PrintChoices(Peers());
}

// Those of all commands when there is none yet.
void CommandLine::CompleteOption(const CLI::App* command) const
{
    std::map<std::string, std::string> options;
    for (const Command& each : commands) {
        const CLI::App* const sub = app.get_subcommand(each.name);
        if (command != nullptr && sub != command)
            continue;
        for (const CLI::Option* option : sub->get_options()) {
            if (!option->get_positional())
                options.emplace("--" + option->get_lnames().front(), option->get_description());
        }
    }
    for (const auto& [name, meaning] : options)
        PrintCompletion(name, meaning);
}

void CommandLine::CompleteArgument(const CLI::App& command) const
{
    const auto has = [&](const char* name) { return command.get_option_no_throw(name) != nullptr; };
    if (has(kSwitch))
        PrintChoices(SwitchWords());
    else if (has("FILE") || has("IN") || has("A"))
        PrintFiles();
}

}  // namespace

Status RunCommandLine(Words words)
{
    if (words.empty() || words.front() != kCompleteWord)
        return CommandLine().Run(std::move(words));
    words.erase(words.begin());
    CommandLine().Complete(std::move(words));
    return Status::Success;
}
