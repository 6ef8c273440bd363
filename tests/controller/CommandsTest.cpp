// The tool's command line and its commands on image files, as a user runs them.

#include <algorithm>
#include <csignal>
#include <sstream>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

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

using namespace std::string_literals;

namespace {

// The output of a command, and its exit status.
struct Shown {
    Status status;
    std::string output;
    std::string error;
};

Shown RunTool(const std::vector<std::string>& words)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Status status = RunCommandLine(words);
    const std::string output = testing::internal::GetCapturedStdout();
    return {status, output, testing::internal::GetCapturedStderr()};
}

bool Has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// A port that a unit of the test listens on.
struct Listener {
    Listener()
    {
        sockaddr_in address = {};
        socklen_t size = sizeof(address);
        listen(descriptor.Get(), 1);
        getsockname(descriptor.Get(), reinterpret_cast<sockaddr*>(&address), &size);
        port = std::to_string(ntohs(address.sin_port));
    }
    const UniqueFd descriptor{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::string port;
};

// 0x10020 bytes with the version "V3".
std::string Good()
{
    std::string image = Firmware(0x10020);
    image.replace(0x400, 32, "V3" + std::string(30, '\0'));
    return image;
}

}  // namespace

TEST(CommandLine, RefusesWhatACommandDoesNotTake)
{
    const struct {
        std::vector<std::string> words;
        const char* error;
    } rows[] = {
        {{}, "no command"},
        {{"chekc"}, "no such command: chekc (did you mean check?)"},
        {{"xyz"}, "no such command: xyz;"},
        {{"--host", "check"}, "no command"},
        {{"check"}, "FILE is required"},
        {{"convert", "a.hex"}, "OUT is required"},
        {{"diff", "a", "b", "c"}, "was not expected: c"},
        {{"read", "x"}, "was not expected: x"},
        {{"version", "onn"}, "onn not in {on,off}"},
        {{"--force", "version"}, "was not expected: --force"},
        {{"--port=0", "version"}, "--port: 0 is not a number from 1 to 65535"},
        {{"--timeout", "1e-7", "version"}, "--timeout: 1e-7 is not a number from 0.001 to 1000000"},
        {{"--wait", "nan", "version"}, "--wait: nan is not"},
        {{"check", "a.hex", "--svg", "a.hex"}, "--svg: it takes the name of a picture"},
        {{"check", "a.hex", "b.hex", "--svg", "x"}, "--svg takes one file"},
        {{"check", "a.hex", "--peer", "226"}, "226 not in {225,229}"},
    };
    for (const auto& row : rows) {
        const Shown shown = RunTool(row.words);
        EXPECT_EQ(shown.status, Status::Usage);
        EXPECT_TRUE(Has(shown.error, row.error)) << shown.error;
        EXPECT_TRUE(Has(shown.error, "; try diagctl --help\n"));
    }
    EXPECT_TRUE(Has(RunTool({"reed", "--json"}).output, "\"status\":2,\"text\":\"no such command"));
    EXPECT_TRUE(Has(RunTool({"help", "check"}).output, "--svg FILE"));
    EXPECT_EQ(RunTool({"check", "-h"}).output, RunTool({"help", "check"}).output);
    EXPECT_FALSE(Has(RunTool({"read", "--help"}).output, "--svg"));
    EXPECT_TRUE(Has(RunTool({"--help"}).output, "\n  3  no connection"));
    EXPECT_EQ(RunTool({"--version"}).output.substr(0, 8), "diagctl ");
}

TEST(CommandLine, CompletesTheLastWord)
{
    const auto after = [](std::vector<std::string> words) {
        words.insert(words.begin(), "complete");
        return "\n" + RunTool(words).output;
    };
    EXPECT_TRUE(Has(after({""}), "\nconvert\tmake one"));
    EXPECT_TRUE(Has(after({"-"}), "\n--force\t"));
    EXPECT_TRUE(Has(after({"--port", "5", ""}), "\nread\t"));
    EXPECT_FALSE(Has(after({"read", "--"}), "--force"));
    EXPECT_TRUE(Has(after({"read", "--"}), "\n--port\t"));
    EXPECT_EQ(after({"--port", ""}), "\n");
    EXPECT_EQ(after({"check", "--peer", ""}), "\n225\tthe CSP\n229\tthe other board\n");
    EXPECT_EQ(after({"check", "--svg", ""}), "\n:files\n");
    EXPECT_EQ(after({"--wait", "5", "check", "a", "b"}), "\n:files\n");
    EXPECT_TRUE(Has(after({"version", "o"}), "\noff\t"));
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
        EXPECT_EQ(exchange.Reason(), row.reason);
        EXPECT_EQ(exchange.Note(), row.note);
        EXPECT_EQ(exchange.HasEnded(), row.hasEnded);
        EXPECT_EQ(exchange.ResultAt(false), row.status);
    }
}

TEST(Exchange, MonitorSucceedsOnlyIfReadBackClosesLink)
{
    Exchange monitor(QueryOf("monitor"));
    EXPECT_TRUE(monitor.Take("CSP Read Success."));
    EXPECT_EQ(monitor.ResultAt(true), Status::Success);
    EXPECT_TRUE(monitor.Take("CSP Update Failed."));
    EXPECT_EQ(monitor.ResultAt(true), Status::Connection);
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
    const Listener unit;
    UniqueFd peer(-1);
    Clock::time_point deadline;
    Link link([&](char, std::string_view bytes) {
        if (bytes != "ab")
            return;
        while (Clock::now() < deadline) {
        }
        ASSERT_EQ(send(peer.Get(), "c\n", 2, 0), 2);
    });
    std::string text;
    ASSERT_TRUE(link.Connect("127.0.0.1", unit.port, std::chrono::seconds(9), text)) << text;
    peer.Reset(accept(unit.descriptor.Get(), nullptr, nullptr));
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
    std::filesystem::permissions(target, std::filesystem::perms{0640});
    std::filesystem::create_symlink("target", directory.Path("link"));
    EXPECT_EQ(WriteNewFile(directory.Path("link"), "new").status, Status::Success);
    EXPECT_TRUE(std::filesystem::is_symlink(directory.Path("link")));
    EXPECT_EQ(directory.Read("target"), "new");
    EXPECT_EQ(std::filesystem::status(target).permissions(), std::filesystem::perms{0640});

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

    std::filesystem::permissions(target, std::filesystem::perms{0440});
    EXPECT_EQ(WriteNewFile(target, "x").reason, target + ": is read-only");
    EXPECT_EQ(WriteNewFile("/dev/full", "x").reason, "/dev/full: is not a regular file");
    EXPECT_EQ(WriteNewFile(directory.Path("no/x"), "x").reason,
              directory.Path("no/x") + ": No such file or directory");
    std::string bytes;
    EXPECT_EQ(ReadInput(directory.Path(), bytes).reason, directory.Path() + ": is a directory");
    std::size_t files = 0;
    for (const auto& each : std::filesystem::directory_iterator(directory.Path()))
        files += each.exists() ? 1 : 0;
    EXPECT_EQ(files, 2U) << "no work file is left";
}

TEST(ImageCommands, CheckShowsFindingsSummaryAndPicture)
{
    const TempDir directory;
    const std::string hex = HexText(Good(), 16, "\n");
    const std::string good = directory.Write("good.hex", hex);
    const std::string row = std::string(64, '#');
    const Shown clean = RunTool({"check", good});
    EXPECT_EQ(clean.status, Status::Success) << clean.output;
    EXPECT_TRUE(Has(clean.output, "  version    V3\n"
                                  "  data       90040000 to 9005001F, 65,568 bytes\n"
                                  "  total      65,568 bytes in 9 blocks\n"
                                  "  file       4,101 records, line ends LF\n"
                                  "  90040000 |#V" +
                                      row.substr(2) + "|\n  90050000 |:" + std::string(63, ' ') +
                                      "|\n  one character per KiB: . erased (FF), : up to"))
        << clean.output;

    const std::size_t line = hex.find(":1004D0");
    const std::string bad = directory.Write("bad.hex", std::string(hex).erase(line, 44));
    const Shown damaged = RunTool({"check", bad, "--svg", directory.Path("bad.svg")});
    EXPECT_EQ(damaged.status, Status::Failed);
    EXPECT_TRUE(Has(damaged.output, "bad.hex:79: error: a gap of 16 bytes from 900404D0"));
    EXPECT_TRUE(Has(damaged.output, "90040000 |#!##")) << damaged.output;
    EXPECT_TRUE(Has(directory.Read("bad.svg"), "<title>90040400 to 900407FF: error</title>"));
    EXPECT_TRUE(Has(RunTool({"check", good, bad, "--json"}).output,
                    "\"line\":79,\"severity\":\"error\",\"address\":\"900404D0\""));

    const UniqueFd input(open(good.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(dup2(input.Get(), STDIN_FILENO), STDIN_FILENO);
    EXPECT_EQ(RunTool({"check", "-"}).output.substr(0, 14), "-: 0 errors, 0");

    // A finding about an address without data makes no row and marks no other.
    const std::string unused = Record(4, 0, "\x90\x07"s) + "\n" + Record(4, 0, "\x90\x08"s) + "\n" +
                               Record(0, 0, std::string(16, '\xFF')) + "\n:00000001FF\n";
    const std::string empty =
        directory.Write("empty.hex", hex.substr(0, hex.rfind(":00")) + unused);
    const std::string shown = RunTool({"check", empty}).output;
    EXPECT_TRUE(Has(shown, "no data follows") && !Has(shown, "90070000 |")) << shown;
    EXPECT_TRUE(Has(shown, "|\n  ...      128 KiB without data\n  90080000 |.  ")) << shown;

    const std::string cut = directory.Write("cut.rlg", "\x04\x90\xDD\x01");
    const std::string tiny = directory.Write("tiny.bin", "\x04");
    EXPECT_TRUE(Has(RunTool({"check", cut}).output, "cut.rlg: error: the last run is cut off"));
    EXPECT_TRUE(Has(RunTool({"check", cut, "--json"}).output, "other damage cannot be seen"));
    EXPECT_TRUE(Has(RunTool({"check", tiny}).output, "tiny.bin: error: fewer than 2 bytes"));
    const std::string plain = directory.Write("plain.bin", "\x04\x90x");
    EXPECT_TRUE(Has(RunTool({"check", plain}).output, "plain.bin: warning: no version text"));
    EXPECT_EQ(RunTool({"check", good, directory.Path("none.hex"), bad}).status, Status::Usage);
}

TEST(ImageCommands, ConvertKeepsEveryByteOrRefuses)
{
    const TempDir directory;
    const std::string hex = directory.Write("a.hex", HexText(Good(), 32, "\r\n"));
    const auto path = [&](const char* name) { return directory.Path(name); };
    ASSERT_EQ(RunTool({"convert", hex, path("a.rlg")}).status, Status::Success);
    ASSERT_EQ(RunTool({"convert", path("a.rlg"), path("a.bin")}).status, Status::Success);
    ASSERT_EQ(RunTool({"convert", path("a.bin"), path("b.hex")}).status, Status::Success);
    EXPECT_EQ(directory.Read("a.bin"), "\x04\x90" + Good());
    EXPECT_EQ(directory.Read("b.hex"), directory.Read("a.hex"));
    directory.Write("c.hex", Record(4, 0x1234, "\x90\x04") + HexText(Good(), 32, "\n").substr(15));
    EXPECT_EQ(RunTool({"convert", path("c.hex"), path("c.bin")}).status, Status::Success);
    EXPECT_EQ(directory.Read("c.bin"), directory.Read("a.bin")) << "the address means nothing";

    const std::string base = Record(4, 0, "\x90\x05") + "\n";
    const std::string data = Record(0, 0x1000, "x") + "\n";
    const std::string other = Record(4, 0, "\x90\x07") + "\n" + Record(0, 0, "y") + "\n";
    const std::string end = ":00000001FF\n";
    const std::string before = directory.Read("a.rlg");
    const struct {
        std::string text;
        const char* reason;
    } rows[] = {
        {base + data + end, "starts at 90051000"},
        {base + other + end, "no data follows this address record"},
        {Record(4, 0, "\x90\x06") + "\n" + Record(0, 0, "x") + "\n" + other + end,
         "there is a gap"},
        {base + data, "no end record"},
    };
    for (const auto& row : rows) {
        const std::string input = directory.Write("c.hex", row.text);
        const Shown refused = RunTool({"convert", input, path("a.rlg"), "--force"});
        EXPECT_EQ(refused.status, Status::Failed);
        EXPECT_TRUE(Has(refused.error, row.reason)) << refused.error;
    }
    namespace fs = std::filesystem;
    fs::permissions(path("a.rlg"), fs::perms::owner_read);
    EXPECT_EQ(RunTool({"convert", hex, path("a.rlg"), "--force"}).status, Status::Failed);
    fs::permissions(path("a.rlg"), fs::perms::owner_all);
    EXPECT_EQ(RunTool({"convert", hex, path("a.rlg"), "--force"}).status, Status::Success);
    EXPECT_TRUE(Has(RunTool({"convert", hex, path("a.rlg")}).error, "a.rlg exists"));
    EXPECT_EQ(directory.Read("a.rlg"), before);
    EXPECT_EQ(RunTool({"convert", hex, path("a.srec")}).status, Status::Usage);
    EXPECT_TRUE(Has(RunTool({"convert", hex, path("none/a.bin")}).error, "No such file"));
}

TEST(ImageCommands, DiffNamesRangesAndRows)
{
    const TempDir directory;
    std::string changed = Good();
    changed[0x10] = 'A';
    changed[0x14] = 'B';
    changed[0xFFFF] = 'C';
    const std::string left = directory.Write("a.hex", HexText(Good(), 16, "\n"));
    const std::string right = directory.Write("b.bin", "\x04\x90" + changed.substr(0, 0x10000));
    const Shown outcome = RunTool({"diff", left, right});
    EXPECT_EQ(outcome.status, Status::Failed);
    EXPECT_TRUE(Has(outcome.output, "90040010 to 90040014: 2 bytes differ\n"
                                    "9004FFFF to 9005001F: 33 bytes differ\n"
                                    "90040010 A "))
        << outcome.output;
    EXPECT_TRUE(Has(outcome.output, "\n         B -- -- -- --")) << outcome.output;
    EXPECT_EQ(RunTool({"diff", left, left}).status, Status::Success);
    EXPECT_EQ(RunTool({"diff", left, left}).output, "");
    const std::string end = "\"event\":\"result\",\"status\":1,\"text\":\"\"}\n";
    EXPECT_TRUE(Has(RunTool({"diff", left, right, "--json"}).output, end));

    RunTool({"diff", right, left, "--svg", directory.Path("d.svg")});
    const std::string svg = directory.Read("d.svg");
    EXPECT_TRUE(Has(svg, "<title>90040000 to 900403FF: different</title>"));
    EXPECT_TRUE(Has(svg, "<title>90040400 to 900407FF: equal</title>"));
    EXPECT_TRUE(Has(svg, "<title>90050000 to 900503FF: only in B</title>"));
    EXPECT_TRUE(Has(svg, "<title>90050400 to 900507FF: no data</title>"));
    // Two images with bytes at different places of one cell.
    const std::string low = directory.Write("low.bin", "\x04\x90x");
    const std::string high = directory.Write(
        "high.hex", Record(4, 0, "\x90\x04") + "\n" + Record(0, 0x30, "x") + "\n:00000001FF\n");
    RunTool({"diff", low, high, "--svg", directory.Path("e.svg")});
    EXPECT_TRUE(Has(directory.Read("e.svg"), "<title>90040000 to 900403FF: different</title>"));
    EXPECT_EQ(RunTool({"diff", left, right, "--svg", directory.Path("no/d.svg")}).error,
              "diagctl: " + directory.Path("no/d.svg") + ": No such file or directory\n");
}

TEST(ImageCommands, ChecksumStandsNextToTheCompressedForm)
{
    const TempDir directory;
    const std::string hex = directory.Write("a.hex", HexText(Good(), 32, "\n"));
    const std::string rlg = directory.Path("a.rlg");
    directory.Write("a.sum", "of another file");
    EXPECT_EQ(RunTool({"convert", hex, rlg}).status, Status::Success);
    EXPECT_EQ(directory.Read("a.sum"), SumLine(directory.Read("a.rlg"), "a.rlg"));
    EXPECT_TRUE(
        Has(RunTool({"check", rlg}).output, "  checksum   matches " + directory.Path("a.sum")));

    directory.Write("a.rlg", directory.Read("a.rlg").substr(0, 0x8000));
    const Shown cut = RunTool({"check", rlg});
    EXPECT_EQ(cut.status, Status::Failed);
    EXPECT_TRUE(Has(cut.output, "a.rlg: error: the checksum in the .sum file doesn't match"));
    EXPECT_EQ(RunTool({"convert", rlg, directory.Path("b.hex")}).status, Status::Failed);
    std::filesystem::remove(directory.Path("a.sum"));
    const Shown alone = RunTool({"check", rlg});
    EXPECT_EQ(alone.status, Status::Success) << "half a file is a shorter image";
    EXPECT_TRUE(Has(alone.output, "a.sum: other damage cannot be seen without it"));
}

TEST(ImageCommands, PrepareWritesWhatTheUnitLooksFor)
{
    const TempDir directory;
    const std::string hex = directory.Write("fw.hex", HexText(Good(), 32, "\n"));
    const std::string gap = directory.Write(
        "gap.hex", HexText(Good(), 32, "\n")
                       .insert(0, Record(4, 0, "\x90\x01"s) + "\n" + Record(0, 0, "x") + "\n"));
    const std::string medium = directory.Path("medium");
    std::filesystem::create_directory(medium);
    const Shown done = RunTool({"prepare", hex, medium});
    EXPECT_EQ(done.status, Status::Success) << done.error;
    EXPECT_TRUE(Has(done.output, "csp_prog.rlg: version V3, 65,568 bytes; written, flushed"));
    EXPECT_TRUE(Has(done.output, "upgrade --expect \"V3\"\n"));
    const std::string packed = directory.Read("medium/csp_prog.rlg");
    EXPECT_EQ(CompressImage(directory.Read("fw.hex")), packed);
    EXPECT_EQ(directory.Read("medium/csp_prog.sum"), SumLine(packed, "csp_prog.rlg"));

    EXPECT_EQ(RunTool({"prepare", gap, medium}).status, Status::Success);
    EXPECT_EQ(directory.Read("medium/csp_prog.hex"), directory.Read("gap.hex"));
    EXPECT_TRUE(Has(RunTool({"prepare", hex, medium}).error, "would take it instead"));

    const std::string far = directory.Write("far.hex", Record(4, 0, "\x27\x91") + "\n" +
                                                           Record(0, 0, "x") + "\n:00000001FF\n");
    EXPECT_TRUE(Has(RunTool({"prepare", far, medium}).error, "outside the flash"));
    EXPECT_EQ(RunTool({"check", far, "--peer", "229"}).status, Status::Success);
    EXPECT_EQ(RunTool({"check", far}).status, Status::Failed);
    EXPECT_EQ(RunTool({"prepare", hex, hex}).error, "diagctl: " + hex + ": is not a directory\n");
    EXPECT_EQ(directory.Read("medium/csp_prog.rlg"), packed);
}

TEST(ImageCommands, CheckLimitsFindingsAndEscapesText)
{
    const TempDir directory;
    std::string hex = HexText(Good(), 32, "\n");
    hex.insert(hex.find(":00000001FF"), std::string(30, '\n'));
    const std::string many = directory.Write("many\x7F\x9B.hex", hex);
    const Shown shown = RunTool({"check", many, "--quiet"});
    EXPECT_TRUE(Has(shown.output, "many\\x7F\\x9B.hex: 10 findings not shown; --all shows more\n"));
    EXPECT_EQ(std::count(shown.output.begin(), shown.output.end(), '\n'), 21);
    std::string pages;
    for (char page = 1; page <= 22; ++page)
        pages += Record(4, 0, {'\x90', page}) + "\n" + Record(0, 0, "x") + "\n";
    const std::string scattered = directory.Write("pages.hex", pages + ":00000001FF\n");
    EXPECT_TRUE(Has(RunTool({"check", scattered}).output, "data       2 ranges not shown; --all"));
    EXPECT_FALSE(Has(RunTool({"check", scattered, "--all"}).output, "not shown"));
    const Shown all = RunTool({"check", many, "--quiet", "--all", "--json"});
    EXPECT_EQ(std::count(all.output.begin(), all.output.end(), '\n'), 32);
    EXPECT_TRUE(Has(all.output, "many\\u007f\\u009b.hex"));
    EXPECT_TRUE(std::all_of(all.output.begin(), all.output.end(),
                            [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }));
}
