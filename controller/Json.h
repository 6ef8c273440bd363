#pragma once

#include <string_view>

#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

// An object for one line of output, with its time (UTC) and its event.
Json MakeEvent(std::string_view event);

// A byte above ASCII becomes the character of the same number, so that a program can get the bytes
// back whatever encoding they are in.
Json MakeText(std::string_view bytes);

void Print(const Json& object);
