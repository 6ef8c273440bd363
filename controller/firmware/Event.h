#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

// A line of `--json`: an object with its time (UTC), its event and what is added, in that order.
// Only its source includes the library, whose header takes longer to compile than all the rest.
class Event {
public:
    explicit Event(std::string_view name);
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    // A byte above ASCII becomes the character of the same number, so that a program can get the
    // bytes back whatever encoding they are in.
    void AddText(const char* key, std::string_view bytes);
    void AddNumber(const char* key, long long number);
    void AddTrue(const char* key);

    // Starts a list, which may stay empty, and adds to it.
    void AddList(const char* key);
    void AddRange(const char* key, std::string_view start, long long size);

    std::string Line() const;

private:
    std::unique_ptr<nlohmann::ordered_json> object;
};
