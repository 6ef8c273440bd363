// The controller's commands on image files, as a user runs them.

#include <csignal>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Command.h"
#include "Exchange.h"
#include "HexText.h"
#include "ImageFile.h"
#include "Output.h"
#include "TempDir.h"

using namespace std::string_literals;

namespace {

// The output of a command, and its exit status.
struct Shown {
    Status status;
    std::string output;
    std::string error;
};

Shown RunCommand(Outcome (*command)(const Invocation&), const std::vector<std::string>& arguments,
                 const Invocation& options = {})
{
    Invocation invocation = options;
    invocation.arguments = arguments;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Status status = Finish(invocation, command(invocation));
    const std::string output = testing::internal::GetCapturedStdout();
    return {status, output, testing::internal::GetCapturedStderr()};
}

bool Has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// 0x10020 bytes with the version "V3".
std::string Good()
{
    std::string image = Firmware(0x10020);
    image.replace(0x400, 32, "V3" + std::string(30, '\0'));
    return image;
}

}  // namespace

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

TEST(Exchange, AddsReasonsToAFailure)
{
    const struct {
        const char* command;
        std::vector<const char*> lines;
        const char* reason;
        bool hasEnded;
    } rows[] = {
        {"backup",
         {"Copying CSP Parameters...", "HD -> FD", "Copy error.", "Success. x", "b", "c"},
         "Copy error. Success. x; b; c",
         true},
        {"restore", {"Copy error.", "x", "Copy Success."}, "Copy error. x", true},
        {"read",
         {"KVT : Update the Service Center.", "CSP Read Failed.", "a", "Rebooting CSP..."},
         "CSP Read Failed. a",
         true},
        {"read",
         {"KVT : Update the Service Center.", "CSP Read Failed.", "Rebooting CSP...", "a"},
         "CSP Read Failed. a",
         false},
        {"find-update",
         {"[ System version: Update File ]", "V7", "csp_prog.hex:3: x"},
         "csp_prog.hex:3: x",
         false},
        {"monitor", {"CSP Read Failed.", "a"}, "CSP Read Failed.", false},
    };
    for (const auto& row : rows) {
        Exchange exchange(QueryOf(row.command));
        for (const char* line : row.lines) {
            EXPECT_FALSE(exchange.HasEnded()) << line;
            exchange.Take(line);
        }
        EXPECT_EQ(exchange.Reason(), row.reason);
        EXPECT_EQ(exchange.HasEnded(), row.hasEnded) << row.reason;
        const bool isFind = row.command == "find-update"s;
        EXPECT_EQ(exchange.ResultAt(false), isFind ? Status::Success : Status::Failed);
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

TEST(ScratchDirectory, IsRemovedBeforeSignalEndsProgram)
{
    const TempDir directory;
    const auto endInScope = [&] {
        const ScratchDirectory scratch(directory.Path());
        std::raise(SIGTERM);
    };
    EXPECT_EXIT(endInScope(), testing::KilledBySignal(SIGTERM), "");
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
}

TEST(ImageCommands, ConvertReportsUnusableTarget)
{
    const TempDir directory;
    const std::string good = directory.Write("good.hex", HexText(Good(), 16, "\n"));
    const std::string target = directory.Path(std::string(300, 'x') + ".bin");
    EXPECT_EQ(RunCommand(ConvertImage, {good, target}).error,
              "diagctl: " + target + ": File name too long\n");
}

TEST(ImageCommands, CheckShowsFindingsSummaryAndPicture)
{
    const TempDir directory;
    const std::string hex = HexText(Good(), 16, "\n");
    const std::string good = directory.Write("good.hex", hex);
    const std::string row = std::string(64, '#');
    const Shown clean = RunCommand(CheckFiles, {good});
    EXPECT_EQ(clean.status, Status::Success) << clean.output;
    EXPECT_TRUE(Has(clean.output, "  version    V3\n"
                                  "  data       90040000 to 9005001F, 65568 bytes\n"
                                  "  altogether 65568 bytes in 9 blocks\n"
                                  "  file       4101 records, line ends LF\n"
                                  "  90040000 |#V" +
                                      row.substr(2) + "|\n  90050000 |:" + std::string(63, ' ') +
                                      "|\n"))
        << clean.output;

    const std::size_t line = hex.find(":1004D0");
    const std::string bad = directory.Write("bad.hex", std::string(hex).erase(line, 44));
    Invocation options;
    options.svg = directory.Path("bad.svg");
    const Shown damaged = RunCommand(CheckFiles, {bad}, options);
    EXPECT_EQ(damaged.status, Status::Failed);
    EXPECT_TRUE(Has(damaged.output, "bad.hex:79: error: a gap of 16 bytes from 900404D0"));
    EXPECT_TRUE(Has(damaged.output, "90040000 |#!##")) << damaged.output;
    EXPECT_TRUE(Has(directory.Read("bad.svg"), "fill=\"#d01010\""));
    options.svg = good;
    EXPECT_EQ(RunCommand(CheckFiles, {good}, options).status, Status::Usage);
    EXPECT_TRUE(directory.Read("good.hex") == hex) << "an image is no place for a picture";
    options = {};
    options.json = true;
    EXPECT_TRUE(Has(RunCommand(CheckFiles, {good, bad}, options).output,
                    "\"line\":79,\"severity\":\"error\",\"address\":\"900404D0\""));

    const std::string cut = directory.Write("cut.rlg", "\x04\x90\xDD\x01");
    const std::string tiny = directory.Write("tiny.bin", "\x04");
    EXPECT_TRUE(
        Has(RunCommand(CheckFiles, {cut}).output, "cut.rlg: error: the last run is cut off"));
    EXPECT_TRUE(Has(RunCommand(CheckFiles, {cut}, options).output, "other damage cannot be seen"));
    EXPECT_TRUE(Has(RunCommand(CheckFiles, {tiny}).output, "tiny.bin: error: fewer than 2 bytes"));
    EXPECT_EQ(RunCommand(CheckFiles, {good, directory.Path("none.hex"), bad}).status,
              Status::Usage);

    setenv("TMPDIR", "/none", 1);
    EXPECT_TRUE(Has(RunCommand(CheckFiles, {directory.Write("good.rlg", "\x04\x90")}).error,
                    "no directory for temporary files: "));
    unsetenv("TMPDIR");
}

TEST(ImageCommands, ConvertKeepsEveryByteOrRefuses)
{
    const TempDir directory;
    const std::string hex = directory.Write("a.hex", HexText(Good(), 32, "\r\n"));
    const auto path = [&](const char* name) { return directory.Path(name); };
    ASSERT_EQ(RunCommand(ConvertImage, {hex, path("a.rlg")}).status, Status::Success);
    ASSERT_EQ(RunCommand(ConvertImage, {path("a.rlg"), path("a.bin")}).status, Status::Success);
    ASSERT_EQ(RunCommand(ConvertImage, {path("a.bin"), path("b.hex")}).status, Status::Success);
    EXPECT_EQ(directory.Read("a.bin"), "\x04\x90" + Good());
    EXPECT_EQ(directory.Read("b.hex"), directory.Read("a.hex"));
    directory.Write("c.hex", Record(4, 0x1234, "\x90\x04") + HexText(Good(), 32, "\n").substr(15));
    EXPECT_EQ(RunCommand(ConvertImage, {path("c.hex"), path("c.bin")}).status, Status::Success);
    EXPECT_EQ(directory.Read("c.bin"), directory.Read("a.bin")) << "the address means nothing";

    const std::string base = Record(4, 0, "\x90\x05") + "\n";
    const std::string data = Record(0, 0x1000, "x") + "\n";
    const std::string other = Record(4, 0, "\x90\x07") + "\n" + Record(0, 0, "y") + "\n";
    const std::string end = ":00000001FF\n";
    const std::string before = directory.Read("a.rlg");
    Invocation force;
    force.force = true;
    const struct {
        std::string text;
        const char* reason;
    } rows[] = {
        {base + data + end, "start at 90051000"},
        {base + other + end, "no data follow this address record"},
        {Record(4, 0, "\x90\x06") + "\n" + Record(0, 0, "x") + "\n" + other + end, "have a gap"},
        {base + data, "no end record"},
    };
    for (const auto& row : rows) {
        const std::string input = directory.Write("c.hex", row.text);
        const Shown refused = RunCommand(ConvertImage, {input, path("a.rlg")}, force);
        EXPECT_EQ(refused.status, Status::Failed);
        EXPECT_TRUE(Has(refused.error, row.reason)) << refused.error;
    }
    namespace fs = std::filesystem;
    fs::permissions(path("a.rlg"), fs::perms::owner_read);
    EXPECT_EQ(RunCommand(ConvertImage, {hex, path("a.rlg")}, force).status, Status::Success);
    EXPECT_EQ(fs::status(path("a.rlg")).permissions(), fs::perms::owner_read);
    EXPECT_TRUE(Has(RunCommand(ConvertImage, {hex, path("a.rlg")}).error, "a.rlg exists"));
    EXPECT_EQ(directory.Read("a.rlg"), before);
    EXPECT_EQ(RunCommand(ConvertImage, {hex, path("a.srec")}).status, Status::Usage);
    EXPECT_TRUE(Has(RunCommand(ConvertImage, {hex, path("none/a.bin")}).error, "No such file"));
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
    const Shown outcome = RunCommand(CompareImages, {left, right});
    EXPECT_EQ(outcome.status, Status::Failed);
    EXPECT_TRUE(Has(outcome.output, "90040010 to 90040014: 2 bytes differ\n"
                                    "9004FFFF to 9005001F: 33 bytes differ\n"
                                    "90040010 A "))
        << outcome.output;
    EXPECT_TRUE(Has(outcome.output, "\n         B -- -- -- --")) << outcome.output;
    EXPECT_EQ(RunCommand(CompareImages, {left, left}).status, Status::Success);
    EXPECT_EQ(RunCommand(CompareImages, {left, left}).output, "");
    Invocation json;
    json.json = true;
    const std::string end = "\"event\":\"result\",\"status\":1,\"text\":\"\"}\n";
    EXPECT_TRUE(Has(RunCommand(CompareImages, {left, right}, json).output, end));
}
