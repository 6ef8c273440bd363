#include "Output.h"

#include <cstdio>

#include "Command.h"
#include "Event.h"
#include "HexFormat.h"
#include "Printable.h"

namespace {

constexpr int kBarWidth = 30;
constexpr int kPercent = 100;
constexpr int kMinute = 60;
constexpr int kParameterKiB = kParameterSize / 1024;  // of flash, which a read-back covers

std::string Duration(Clock::duration time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    const auto rest = seconds % kMinute;
    return std::to_string(seconds / kMinute) + (rest < 10 ? ":0" : ":") + std::to_string(rest);
}

// How much of the flash that is; empty where the size isn't known.
std::string Amount(std::string_view phase, int percent)
{
    if (phase != kReadingPhase)
        return {};
    return "  " + std::to_string(kParameterKiB * percent / kPercent) + " of " +
           std::to_string(kParameterKiB) + " KiB";
}

// `done` is how many percent the elapsed time was for.
std::string Times(Clock::duration elapsed, int done, int percent)
{
    std::string text = "  " + Duration(elapsed);
    if (done > 0 && percent < kPercent)
        text += ", " + Duration(elapsed * (kPercent - percent) / done) + " left";
    return text;
}

}  // namespace

void Output::ShowLine(std::string_view line, bool isCut, std::string_view completed)
{
    if (form == Form::Answer || form == Form::Nothing)
        return;
    if (!completed.empty())
        Complete(completed);
    const auto progress = ProgressOf(line);
    if (progress && (form == Form::Json || (form == Form::Bar && progress->percent))) {
        ShowProgress(*progress, line);
    } else if (form == Form::Json) {
        Event event("line");
        event.AddText("text", line);
        if (isCut)
            event.AddTrue("cut");
        PrintLines(event.Line());
    } else {
        EndBar();
        std::printf("%s%s\n", Readable(line).c_str(), isCut ? "..." : "");
    }
    std::fflush(stdout);
}

void Output::ShowBusy(const Progress& progress)
{
    EndBar();
    if (form == Form::Json) {
        Event event("busy");
        event.AddText("phase", progress.phase);
        if (progress.percent)
            event.AddNumber("percent", *progress.percent);
        PrintLines(event.Line());
        std::fflush(stdout);
    }
    Complain("the unit is busy (" + TextOf(progress) + ")");
}

void Output::EndBar()
{
    if (barStands)
        std::printf("\n");
    barStands = false;
    std::fflush(stdout);
}

void Output::ShowAnswer(const std::string& answer)
{
    if (form == Form::Answer && !answer.empty())
        std::printf("%s\n", Readable(answer).c_str());
}

void Output::ShowProgress(const Progress& progress, std::string_view line)
{
    if (progress.phase != last.phase) {
        begin = Clock::now();
        firstPercent = progress.percent.value_or(0);
    }
    last = progress;
    if (form == Form::Bar)
        return ShowBar(progress.percent.value_or(0));
    Event event("progress");
    event.AddText("phase", progress.phase);
    if (progress.percent)
        event.AddNumber("percent", *progress.percent);
    if (!line.empty())
        event.AddText("text", line);
    PrintLines(event.Line());
}

void Output::ShowBar(int percent)
{
    const auto filled = static_cast<std::size_t>(percent * kBarWidth / kPercent);
    const std::string rest =
        Amount(last.phase, percent) + Times(Clock::now() - begin, percent - firstPercent, percent);
    std::printf("\r%s [%s%s] %3d%%%s\x1B[K", std::string(last.phase).c_str(),
                std::string(filled, '#').c_str(), std::string(kBarWidth - filled, '.').c_str(),
                percent, rest.c_str());
    barStands = true;
}

// What comes next is other work.
void Output::Complete(std::string_view phase)
{
    if (form != Form::Plain && last.percent != kPercent)
        ShowProgress({phase, kPercent}, {});
    last = {};
}
