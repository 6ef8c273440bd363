#include "Json.h"

#include <cstdio>
#include <string>

#include <sys/time.h>

namespace {

constexpr unsigned char kFirstOfTwoBytes = 0x80;

std::string Now()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm parts = {};
    gmtime_r(&now.tv_sec, &parts);
    char text[sizeof("2026-11-24T16:47:00.000Z") + 8];
    const std::size_t length = std::strftime(text, sizeof(text), "%FT%T", &parts);
    std::snprintf(text + length, sizeof(text) - length, ".%03dZ",
                  static_cast<int>(now.tv_usec / 1000));
    return text;
}

}  // namespace

Json MakeEvent(std::string_view event)
{
    return {{"time", Now()}, {"event", event}};
}

Json MakeText(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < kFirstOfTwoBytes) {
            text += byte;
            continue;
        }
        text += static_cast<char>(0xC0U | value >> 6U);
        text += static_cast<char>(0x80U | (value & 0x3FU));
    }
    return text;
}

void Print(const Json& object)
{
    std::printf("%s\n", object.dump().c_str());
    std::fflush(stdout);
}
