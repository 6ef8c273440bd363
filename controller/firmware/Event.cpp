#include "Event.h"

#include <cstdio>

#include <nlohmann/json.hpp>
#include <sys/time.h>

#include "HexFormat.h"

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

std::string ToUtf8(std::string_view bytes)
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

}  // namespace

Event::Event(std::string_view name)
    : object(std::make_unique<nlohmann::ordered_json>(
          nlohmann::ordered_json{{"time", Now()}, {"event", name}}))
{}

Event::~Event() = default;

void Event::AddText(const char* key, std::string_view bytes)
{
    (*object)[key] = ToUtf8(bytes);
}

void Event::AddNumber(const char* key, long long number)
{
    (*object)[key] = number;
}

void Event::AddTrue(const char* key)
{
    (*object)[key] = true;
}

void Event::AddList(const char* key)
{
    (*object)[key] = nlohmann::ordered_json::array();
}

void Event::AddRange(const char* key, std::string_view start, long long size)
{
    (*object)[key].push_back({{"start", start}, {"size", size}});
}

std::string Event::Line() const
{
    constexpr int kOneLine = -1;
    constexpr bool kOnlyAscii = true;  // a terminal takes some of the others for commands
    return object->dump(kOneLine, ' ', kOnlyAscii) + kLf;
}
