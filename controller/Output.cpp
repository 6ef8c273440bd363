#include "Output.h"

#include <cstdio>

namespace {

constexpr int kBarWidth = 40;
constexpr int kPercent = 100;
constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kLastPrintable = 0x7E;

// The bytes with everything escaped that isn't printable ASCII or is one of `special`. `form` is
// how a byte is written that can't stand for itself.
std::string Escaped(std::string_view bytes, std::string_view special, const char* form)
{
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < kFirstPrintable || value > kLastPrintable) {
            char number[sizeof("\\u00FF")];
            std::snprintf(number, sizeof(number), form, value);
            text += number;
            continue;
        }
        if (special.find(byte) != std::string_view::npos)
            text += '\\';
        text += byte;
    }
    return text;
}

std::string Readable(std::string_view bytes)
{
    return Escaped(bytes, "\\", "\\x%02X");
}

// A byte above ASCII becomes the character of the same number, so that a program can get the bytes
// back whatever encoding they are in.
std::string Json(std::string_view bytes)
{
    return "\"" + Escaped(bytes, "\"\\", "\\u00%02X") + "\"";
}

}  // namespace

void Output::ShowLine(std::string_view line, bool isCut)
{
    const std::optional<int> percent = PercentOf(line);
    if (form == Form::Json) {
        std::printf("{\"line\":%s", Json(line).c_str());
        if (percent)
            std::printf(",\"percent\":%d", *percent);
        std::printf("%s}\n", isCut ? ",\"cut\":true" : "");
    } else if (form == Form::Bar && percent) {
        ShowBar(line.substr(0, line.find_last_of(' ')), *percent);
    } else {
        EndBar();
        std::printf("%s%s\n", Readable(line).c_str(), isCut ? "..." : "");
    }
    std::fflush(stdout);
}

void Output::ShowResult(Status status, const std::string& reason)
{
    EndBar();
    if (form == Form::Json)
        std::printf("{\"status\":%d,\"reason\":%s}\n", static_cast<int>(status),
                    Json(reason).c_str());
    std::fflush(stdout);
    if (!reason.empty())
        std::fprintf(stderr, "diagctl: %s\n", Readable(reason).c_str());
}

void Output::ShowBar(std::string_view label, int percent)
{
    const auto filled = static_cast<std::size_t>(percent * kBarWidth / kPercent);
    std::printf("\r%s [%s%s] %3d%%\x1B[K", Readable(label).c_str(),
                std::string(filled, '#').c_str(), std::string(kBarWidth - filled, '.').c_str(),
                percent);
    barStands = true;
}

void Output::EndBar()
{
    if (barStands)
        std::printf("\n");
    barStands = false;
}
