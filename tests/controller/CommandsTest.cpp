// The tool's command line and its commands on image files, as a user runs them, the schema of what
// they print for programs, and what a line of the unit means to a command.

#include <algorithm>
#include <csignal>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "Command.h"
#include "CommandLine.h"
#include "Compress.h"
#include "Exchange.h"
#include "Files.h"
#include "HexText.h"
#include "Link.h"
#include "NewFile.h"
#include "Output.h"
#include "SumFile.h"
#include "TempDir.h"
#include "Texts.h"

namespace fs = std::filesystem;
using namespace std::string_literals;
using nlohmann::json;

namespace {

// The output of a command, and its exit status.
struct Shown {
    Status status;
    std::string output;
    std::string error;
};

Shown RunTool(const Words& words)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Status status = RunCommandLine(words);
    const std::string output = testing::internal::GetCapturedStdout();
    return {status, output, testing::internal::GetCapturedStderr()};
}

// Runs a command that ends with the status and shows each of the parts.
void Expect(Status status, const Words& words, const Words& parts)
{
    const Shown shown = RunTool(words);
    const std::string text = shown.output + shown.error;
    SCOPED_TRACE(text);
    EXPECT_EQ(shown.status, status);
    for (const std::string& part : parts)
        EXPECT_TRUE(Contains(text, part)) << part;
}

const std::string kGood = Firmware(0x10020, "V3");

// The lines of a hex file with a byte or more at the address.
std::string At(const std::string& upper, unsigned low, const std::string& bytes)
{
    return Record(4, 0, upper) + "\n" + Record(0, low, bytes) + "\n";
}

constexpr char kEnd[] = ":00000001FF\n";

bool diskFails = false;  // it keeps other bytes than were written

}  // namespace

// Replaces libc's in this program.
extern "C" int fdatasync(int descriptor)
{
    if (diskFails && pwrite(descriptor, "X", 1, 0) != 1)
        return -1;
    return static_cast<int>(syscall(SYS_fdatasync, descriptor));
}

TEST(CommandLine, RefusesWhatACommandDoesNotTake)
{
    const std::pair<Words, const char*> rows[] = {
        {{}, "no command"},
        {{"chekc"}, "no such command: chekc (did you mean check?)"},
        {{"xyz"}, "no such command: xyz;"},
        {{"--host", "check"}, "no command"},
        {{"check"}, "FILE is required"},
        {{"convert", "a.hex"}, "OUT is required"},
        {{"diff", "a", "b", "c"}, "was not expected: c"},
        {{"version", "onn"}, "onn not in {on,off}"},
        {{"--force", "version"}, "was not expected: --force"},
        {{"--port=0", "version"}, "--port: 0 is not a number from 1 to 65535"},
        {{"--timeout", "1e-7", "version"}, "--timeout: 1e-7 is not a number from 0.001 to 1000000"},
        {{"--wait", "nan", "version"}, "--wait: nan is not"},
        {{"check", "a.hex", "--svg", "a.hex"}, "--svg: it takes the name of a picture"},
        {{"check", "a.hex", "b.hex", "--svg", "x"}, "--svg takes one file"},
        {{"check", "a.hex", "--peer", "226"}, "226 not in {225,229}"},
        {{"reed", "--json"}, "\"status\":2,\"text\":\"no such command"},
    };
    for (const auto& [words, error] : rows)
        Expect(Status::Usage, words, {error, "; try diagctl --help"});
    EXPECT_EQ(RunTool({"check", "-h"}).output, RunTool({"help", "check"}).output);
    EXPECT_FALSE(Contains(RunTool({"read", "--help"}).output, "--svg"));
    EXPECT_TRUE(Contains(RunTool({"--help"}).output, "\n  3  no connection"));
    EXPECT_EQ(RunTool({"--version"}).output.substr(0, 8), "diagctl ");
    EXPECT_TRUE(Contains(RunTool({"page"}).error, "share/diagctl/firmware.html: No such file"));
}

TEST(CommandLine, CompletesTheLastWord)
{
    const auto after = [](Words words) {
        words.insert(words.begin(), "complete");
        return "\n" + RunTool(words).output;
    };
    EXPECT_TRUE(Contains(after({""}), "\nconvert\tmake one"));
    EXPECT_TRUE(Contains(after({"-"}), "\n--force\t"));
    EXPECT_TRUE(Contains(after({"--port", "5", ""}), "\nread\t"));
    EXPECT_FALSE(Contains(after({"read", "--"}), "--force"));
    EXPECT_EQ(after({"--port", ""}), "\n");
    EXPECT_EQ(after({"check", "--peer", ""}), "\n225\tthe CSP\n229\tthe other board\n");
    EXPECT_EQ(after({"check", "--svg", ""}), "\n:files\n");
    EXPECT_EQ(after({"--wait", "5", "check", "a", "b"}), "\n:files\n");
    EXPECT_TRUE(Contains(after({"version", "o"}), "\noff\t"));
    EXPECT_EQ(after({"send", ""}) + after({"read", ""}), "\n\n");
}

TEST(Exchange, ClaimsWorkOnlyAfterCommandWasTaken)
{
    Exchange update(QueryOf("update"));
    EXPECT_FALSE(update.Take("CSP Update Failed.") || update.Take("Rebooting CSP..."));
    EXPECT_TRUE(update.OtherWork());
    EXPECT_FALSE(update.HasEnded());
    EXPECT_TRUE(update.Take("\x60\x01KVT : Update the Service Center."))
        << "after bytes of the piano";
    EXPECT_FALSE(update.OtherWork());
    EXPECT_TRUE(update.Take("Connecting to CSP") && update.Take("CSP Update Success."));
    EXPECT_EQ(update.CompletedPhase("CSP Update Success."), "writing");
    EXPECT_EQ(update.ResultAt(true), Status::Success);

    Exchange monitor(QueryOf("monitor"));
    EXPECT_TRUE(monitor.Take("CSP Read Success."));
    EXPECT_EQ(monitor.ResultAt(true), Status::Success) << "the server ends after a read-back";
    EXPECT_TRUE(monitor.Take("CSP Update Failed."));
    EXPECT_EQ(monitor.ResultAt(true), Status::Connection);
}

TEST(Exchange, AddsReasonsAndNotesToAResult)
{
    const std::string busy = "KVT : Update the Service Center.|";
    constexpr char kNote[] = "f: not verified, since y";
    const std::string noted = std::string(kNote) + "|";
    const struct {
        const char* command;
        std::string lines;
        Status status;
        const char* reason;
        const char* note = "";
        bool hasEnded = false;
    } rows[] = {
        {"backup", "Copying|Copy error.|Success. x|b|" + noted + "d", Status::Failed,
         "Copy error. Success. x; b; d", kNote, true},
        {"restore", "Copy error.|x|Copy Success.", Status::Failed, "Copy error. x", "", true},
        {"restore", "Copy Success.|x|" + noted + "x", Status::Success, "", kNote},
        {"find-update", "Update File is not exsit.|" + noted + "f: cut", Status::Failed,
         "Update File is not exsit. f: cut", kNote},
        {"read", busy + "CSP Read Failed.|a|Rebooting CSP...", Status::Failed, "CSP Read Failed. a",
         "", true},
        {"read", busy + "CSP Read Failed.|Rebooting CSP...|a", Status::Failed,
         "CSP Read Failed. a"},
        {"find-update", "[ System version: Update File ]|V7|f:3: x", Status::Success, "f:3: x"},
        {"monitor", "CSP Read Failed.|a", Status::Failed, "CSP Read Failed."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.lines);
        Exchange exchange(QueryOf(row.command));
        std::istringstream lines(row.lines);
        for (std::string line; std::getline(lines, line, '|');) {
            EXPECT_FALSE(exchange.HasEnded()) << line;
            exchange.Take(line);
        }
        EXPECT_EQ(exchange.Reason() + "+" + exchange.Note(), row.reason + "+"s + row.note);
        EXPECT_EQ(exchange.HasEnded(), row.hasEnded);
        EXPECT_EQ(exchange.ResultAt(false), row.status);
    }
}

TEST(Output, ShowsMissing100PercentOnce)
{
    testing::internal::CaptureStdout();
    Output output(Output::Form::Bar);
    output.ShowLine("Sending Data 100%", false, {});
    output.ShowLine("CSP Update Success.", false, kWritingPhase);
    output.ShowLine("CSP Update Success.", false, kWritingPhase);
    const std::string work =
        "\rwriting [" + std::string(30, '#') + "] 100%  0:00\x1B[K\nCSP Update Success.\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), work + work);
}

TEST(Link, WaitsPastTheDeadlineForTheRestOfALine)
{
    const UniqueFd unit(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    UniqueFd peer(-1);
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    listen(unit.Get(), 1);
    getsockname(unit.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    const std::string port = std::to_string(ntohs(address.sin_port));
    Clock::time_point deadline;
    Link link([&](char, std::string_view bytes) {
        if (bytes != "ab")
            return;
        while (Clock::now() < deadline) {
        }
        ASSERT_EQ(send(peer.Get(), "c\n", 2, 0), 2);
    });
    std::string text;
    ASSERT_TRUE(link.Connect("127.0.0.1", port, std::chrono::seconds(9), text)) << text;
    peer.Reset(accept(unit.Get(), nullptr, nullptr));
    ASSERT_EQ(send(peer.Get(), "ab", 2, 0), 2);
    deadline = Clock::now() + std::chrono::milliseconds(20);
    bool isCut = false;
    EXPECT_EQ(link.Next(deadline, text, isCut), Link::Arrival::Line);
    EXPECT_EQ(text, "abc");
    EXPECT_EQ(link.Next(deadline, text, isCut), Link::Arrival::Silence);
}

TEST(NewFile, ReplacesTheTargetOnceItIsWhole)
{
    const TempDir directory;
    const std::string target = directory.Write("target", "old");
    fs::permissions(target, fs::perms{0640});
    fs::create_symlink("target", directory.Path("link"));
    EXPECT_EQ(WriteNewFile(directory.Path("link"), "new").status, Status::Success);
    EXPECT_TRUE(fs::is_symlink(directory.Path("link")));
    fs::create_symlink("nowhere", directory.Path("dangling"));
    EXPECT_FALSE(WriteNewFile(directory.Path("dangling"), "new").IsSuccess());
    fs::remove(directory.Path("dangling"));
    EXPECT_EQ(directory.Read("target"), "new");
    EXPECT_EQ(fs::status(target).permissions(), fs::perms{0640});
    diskFails = true;
    EXPECT_EQ(WriteNewFile(target, "y").reason,
              target + ": reads back differently; nothing was replaced");
    diskFails = false;

    // Text of more than one piece. What is pending is what comes in while a piece is written.
    const auto endInScope = [&](int signal) {
        NewFile file(target);
        std::raise(signal);
        const Outcome written = file.Write(std::string(0x80000, 'x'));
        if (written.IsSuccess())
            static_cast<void>(file.TakePlace());
    };
    EXPECT_EXIT(endInScope(SIGTERM), testing::KilledBySignal(SIGTERM), "");
    EXPECT_EQ(directory.Read("target"), "new");
    const auto ignore = [&] {
        std::signal(SIGHUP, SIG_IGN);
        endInScope(SIGHUP);
        std::exit(0);
    };
    EXPECT_EXIT(ignore(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(directory.Read("target").size(), 0x80000U);

    fs::permissions(target, fs::perms{0440});
    EXPECT_EQ(WriteNewFile(target, "x").reason, target + ": is read-only");
    EXPECT_EQ(WriteNewFile("/dev/full", "x").reason, "/dev/full: is not a regular file");
    const std::string missing = directory.Path("no/x");
    EXPECT_EQ(WriteNewFile(missing, "x").reason, missing + ": No such file or directory");
    std::string bytes;
    EXPECT_EQ(ReadInput(directory.Path(), bytes).reason, directory.Path() + ": is a directory");
    const fs::directory_iterator files(directory.Path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 2) << "no work file is left";
}

TEST(ImageCommands, CheckShowsFindingsSummaryAndPicture)
{
    const TempDir directory;
    const std::string hex = HexText(kGood, 16, "\n");
    const std::string good = directory.Write("good.hex", hex);
    Expect(Status::Success, {"check", good},
           {"  version    V3\n  data       90040000 to 9005001F, 65,568 bytes\n"
            "  total      65,568 bytes in 9 blocks\n  file       4,101 records, line ends LF\n"
            "  90040000 |#V" +
            std::string(62, '#') + "|\n  90050000 |:" + std::string(63, ' ') +
            "|\n  one character per KiB: . erased (FF), : up to"});

    const std::string bad =
        directory.Write("bad.hex", std::string(hex).erase(hex.find(":1004D0"), 44));
    Expect(Status::Failed, {"check", bad, "--svg", directory.Path("bad.svg")},
           {"bad.hex:79: error: a gap of 16 bytes from 900404D0", "90040000 |#!##"});
    EXPECT_TRUE(Contains(directory.Read("bad.svg"), "<title>90040400 to 900407FF: error</title>"));
    Expect(Status::Failed, {"check", good, bad, "--json"},
           {"\"line\":79,\"severity\":\"error\",\"address\":\"900404D0\""});

    const UniqueFd input(open(good.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(dup2(input.Get(), STDIN_FILENO), STDIN_FILENO);
    EXPECT_EQ(RunTool({"check", "-"}).output.substr(0, 14), "-: 0 errors, 0");

    // A finding about an address without data makes no row and marks no other.
    const std::string unused =
        Record(4, 0, "\x90\x07"s) + "\n" + At("\x90\x08", 0, std::string(16, '\xFF')) + kEnd;
    const std::string empty =
        directory.Write("empty.hex", hex.substr(0, hex.rfind(":00")) + unused);
    const std::string shown = RunTool({"check", empty}).output;
    EXPECT_TRUE(Contains(shown, "no data follows") && !Contains(shown, "90070000 |")) << shown;
    EXPECT_TRUE(Contains(shown, "|\n  ...      128 KiB without data\n  90080000 |.  ")) << shown;

    const std::string cut = directory.Write("cut.rlg", "\x04\x90\xDD\x01");
    Expect(Status::Failed, {"check", cut}, {"cut.rlg: error: the last run is cut off"});
    Expect(Status::Failed, {"check", cut, "--json"}, {"other damage cannot be seen"});
    Expect(Status::Failed, {"check", directory.Write("tiny.bin", "\x04")},
           {"tiny.bin: error: fewer than 2 bytes"});
    Expect(Status::Success, {"check", directory.Write("plain.bin", "\x04\x90x")},
           {"plain.bin: warning: no version text"});
    Expect(Status::Usage, {"check", good, directory.Path("none.hex"), bad}, {});
    const std::string far = directory.Write("far.hex", At("\x27\x91", 0, "x") + kEnd);
    Expect(Status::Success, {"check", far, "--peer", "229"}, {});
    Expect(Status::Failed, {"check", far}, {"outside the flash"});
    const std::string last = directory.Write("last.hex", At("\xFF\xFF", 0xFFFF, "x") + kEnd);
    Expect(Status::Failed, {"check", last, "--json"}, {"made again for the addresses"});
}

TEST(ImageCommands, ConvertKeepsEveryByteOrRefuses)
{
    const TempDir directory;
    const std::string hex = directory.Write("a.hex", HexText(kGood, 32, "\r\n"));
    const auto path = [&](const char* name) { return directory.Path(name); };
    Expect(Status::Success, {"convert", hex, path("a.rlg")}, {});
    Expect(Status::Success, {"convert", path("a.rlg"), path("a.bin")}, {});
    Expect(Status::Success, {"convert", path("a.bin"), path("b.hex")}, {});
    EXPECT_EQ(directory.Read("a.bin"), "\x04\x90" + kGood);
    EXPECT_EQ(directory.Read("b.hex"), directory.Read("a.hex"));
    directory.Write("c.hex", Record(4, 0x1234, "\x90\x04") + HexText(kGood, 32, "\n").substr(15));
    Expect(Status::Success, {"convert", path("c.hex"), path("c.bin")}, {});
    EXPECT_EQ(directory.Read("c.bin"), directory.Read("a.bin")) << "the address means nothing";

    const std::string other = At("\x90\x07", 0, "y");
    const std::string before = directory.Read("a.rlg");
    const std::pair<std::string, const char*> rows[] = {
        {At("\x90\x05", 0x1000, "x") + kEnd, "starts at 90051000"},
        {Record(4, 0, "\x90\x05") + "\n" + other + kEnd, "no data follows this address record"},
        {At("\x90\x06", 0, "x") + other + kEnd, "there is a gap"},
        {At("\x90\x05", 0x1000, "x"), "no end record"},
    };
    for (const auto& [text, reason] : rows)
        Expect(Status::Failed,
               {"convert", directory.Write("c.hex", text), path("a.rlg"), "--force"}, {reason});
    fs::permissions(path("a.rlg"), fs::perms::owner_read);
    Expect(Status::Failed, {"convert", hex, path("a.rlg"), "--force"}, {});
    fs::permissions(path("a.rlg"), fs::perms::owner_all);
    Expect(Status::Success, {"convert", hex, path("a.rlg"), "--force"}, {});
    Expect(Status::Failed, {"convert", hex, path("a.rlg")}, {"a.rlg exists"});
    EXPECT_EQ(directory.Read("a.rlg"), before);
    Expect(Status::Usage, {"convert", hex, path("a.srec")}, {});
    Expect(Status::Failed, {"convert", hex, path("none/a.bin")}, {"No such file"});
}

TEST(ImageCommands, DiffNamesRangesAndRows)
{
    const TempDir directory;
    std::string changed = kGood;
    changed[0x10] = 'A';
    changed[0x14] = 'B';
    changed[0xFFFF] = 'C';
    const std::string left = directory.Write("a.hex", HexText(kGood, 16, "\n"));
    const std::string right = directory.Write("b.bin", "\x04\x90" + changed.substr(0, 0x10000));
    const std::string svg = directory.Path("d.svg");
    Expect(Status::Failed, {"diff", left, right},
           {"90040010 to 90040014: 2 bytes differ\n9004FFFF to 9005001F: 33 bytes differ\n"
            "90040010 A ",
            "\n         B -- -- -- --"});
    Expect(Status::Failed, {"diff", left, right, "--json"},
           {"\"event\":\"result\",\"status\":1,\"text\":\"\"}\n"});
    Expect(Status::Success, {"diff", left, left}, {});
    EXPECT_EQ(RunTool({"diff", left, left}).output, "");

    Expect(Status::Failed, {"diff", right, left, "--svg", svg}, {});
    for (const char* cell : {"0000 to 900403FF: different", "0400 to 900407FF: equal"})
        EXPECT_TRUE(Contains(directory.Read("d.svg"), "<title>9004"s + cell + "</title>"));
    for (const char* cell : {"0000 to 900503FF: only in B", "0400 to 900507FF: no data"})
        EXPECT_TRUE(Contains(directory.Read("d.svg"), "<title>9005"s + cell + "</title>"));
    // Two images with bytes at different places of one cell.
    const std::string low = directory.Write("low.bin", "\x04\x90x");
    const std::string high = directory.Write("high.hex", At("\x90\x04", 0x30, "x") + kEnd);
    RunTool({"diff", low, high, "--svg", svg});
    EXPECT_TRUE(
        Contains(directory.Read("d.svg"), "<title>90040000 to 900403FF: different</title>"));
    EXPECT_EQ(RunTool({"diff", left, right, "--svg", directory.Path("no/d.svg")}).error,
              "diagctl: " + directory.Path("no/d.svg") + ": No such file or directory\n");
}

TEST(ImageCommands, ChecksumStandsNextToTheCompressedForm)
{
    const TempDir directory;
    const std::string hex = directory.Write("a.hex", HexText(kGood, 32, "\n"));
    const std::string rlg = directory.Path("a.rlg");
    directory.Write("a.sum", "of another file");
    Expect(Status::Success, {"convert", hex, rlg}, {});
    EXPECT_EQ(directory.Read("a.sum"), SumLine(directory.Read("a.rlg"), "a.rlg"));
    Expect(Status::Success, {"check", rlg}, {"  checksum   matches " + directory.Path("a.sum")});

    directory.Write("a.rlg", directory.Read("a.rlg").substr(0, 0x8000));
    Expect(Status::Failed, {"check", rlg},
           {"a.rlg: error: the checksum in the .sum file doesn't match"});
    Expect(Status::Failed, {"convert", rlg, directory.Path("b.hex")}, {});
    // A power cut has left it empty. Half a file is a shorter image.
    directory.Write("a.sum", "");
    Expect(Status::Success, {"check", rlg}, {"a.sum: other damage cannot be seen without it"});
}

TEST(ImageCommands, PrepareWritesWhatTheUnitLooksFor)
{
    const TempDir directory;
    const std::string text = HexText(kGood, 32, "\n");
    const std::string hex = directory.Write("fw.hex", text);
    const std::string medium = directory.Path("medium");
    fs::create_directory(medium);
    diskFails = true;
    Expect(Status::Failed, {"prepare", hex, medium}, {"csp_prog.rlg: reads back differently"});
    diskFails = false;
    EXPECT_TRUE(fs::is_empty(medium));
    Expect(
        Status::Success, {"prepare", hex, medium},
        {"csp_prog.rlg: version V3, 65,568 bytes; written, flushed", "upgrade --expect \"V3\"\n"});
    const std::string packed = directory.Read("medium/csp_prog.rlg");
    EXPECT_EQ(CompressImage(text), packed);
    EXPECT_EQ(directory.Read("medium/csp_prog.sum"), SumLine(packed, "csp_prog.rlg"));

    const std::string gap = directory.Write("gap.hex", At("\x90\x01", 0, "x") + text);
    Expect(Status::Success, {"prepare", gap, medium}, {});
    EXPECT_EQ(directory.Read("medium/csp_prog.hex"), directory.Read("gap.hex"));
    Expect(Status::Failed, {"prepare", hex, medium}, {"would take it instead"});
    const std::string far = directory.Write("far.hex", At("\x27\x91", 0, "x") + kEnd);
    Expect(Status::Failed, {"prepare", far, medium}, {"outside the flash"});
    EXPECT_EQ(RunTool({"prepare", hex, hex}).error, "diagctl: " + hex + ": is not a directory\n");
    EXPECT_EQ(directory.Read("medium/csp_prog.rlg"), packed);
}

TEST(ImageCommands, CheckLimitsFindingsAndEscapesText)
{
    const TempDir directory;
    std::string hex = HexText(kGood, 32, "\n");
    hex.insert(hex.find(kEnd), std::string(30, '\n'));
    const std::string many = directory.Write("many\x7F\x9B.hex", hex);
    const Shown shown = RunTool({"check", many, "--quiet"});
    EXPECT_TRUE(
        Contains(shown.output, "many\\x7F\\x9B.hex: 10 findings not shown; --all shows more\n"));
    EXPECT_EQ(std::count(shown.output.begin(), shown.output.end(), '\n'), 21);
    const Shown all = RunTool({"check", many, "--quiet", "--all", "--json"});
    EXPECT_EQ(std::count(all.output.begin(), all.output.end(), '\n'), 32);
    EXPECT_TRUE(Contains(all.output, "many\\u007f\\u009b.hex"));
    EXPECT_TRUE(std::all_of(all.output.begin(), all.output.end(),
                            [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }));

    std::string pages;
    for (char page = 1; page <= 22; ++page)
        pages += At({'\x90', page}, 0, "x");
    const std::string scattered = directory.Write("pages.hex", pages + kEnd);
    EXPECT_TRUE(
        Contains(RunTool({"check", scattered}).output, "data       2 ranges not shown; --all"));
    EXPECT_FALSE(Contains(RunTool({"check", scattered, "--all"}).output, "not shown"));
}

TEST(Json, FollowsItsSchema)
{
    const TempDir directory;
    const std::string good = directory.Write("a.hex", HexText(Firmware(0x2000), 16, "\n"));
    const std::string bad = directory.Write("b.hex", ":0100000001FF\n:00000001FF\n");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    RunCommandLine({"check", good, bad, "--json"});
    RunCommandLine({"diff", good, directory.Write("c.bin", "\x04\x90Z"), "--json"});
    RunCommandLine({"prepare", good, directory.Path("."), "--json"});
    RunCommandLine({"check", directory.Path("csp_prog.rlg"), "--json"});
    Output output(Output::Form::Json);
    output.ShowLine("Sending Data 40%", false, {});
    output.ShowLine("CSP \x85", true, kWritingPhase);
    output.ShowBusy({kWritingPhase, 7});
    Invocation invocation;
    invocation.json = true;
    Outcome outcome{Status::Failed, "Update File is not exsit.", "V7"};
    outcome.note = "f: not verified";
    Finish(invocation, outcome);
    testing::internal::GetCapturedStderr();
    std::istringstream lines(testing::internal::GetCapturedStdout());

    using valijson::adapters::NlohmannJsonAdapter;
    const json rules = json::parse(std::ifstream(DIAG_SOURCE "/docs/diagctl.schema.json"));
    valijson::Schema schema;
    valijson::SchemaParser().populateSchema(NlohmannJsonAdapter(rules), schema);
    std::set<std::string> unseen;
    for (const auto& [event, rule] : rules["$defs"].items())
        if (rule.contains(json::json_pointer("/properties/event")))
            unseen.insert(event);
    for (std::string line; std::getline(lines, line);) {
        const json object = json::parse(line);
        EXPECT_TRUE(valijson::Validator().validate(schema, NlohmannJsonAdapter(object), nullptr))
            << line;
        unseen.erase(object["event"]);
    }
    EXPECT_EQ(unseen, std::set<std::string>{"found"}) << "what upgrade alone prints";
}
