#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

inline bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

inline std::size_t Count(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

inline std::string Repeat(const std::string& text, std::size_t count)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

// The end of the text, as long as `expected`; all of it when that is empty.
inline std::string EndOf(const std::string& text, const std::string& expected)
{
    const std::size_t size = expected.empty() ? text.size() : expected.size();
    return text.substr(text.size() - std::min(text.size(), size));
}

// The words of a command line; '' is an empty one.
inline Words Split(const std::string& line)
{
    std::istringstream words(line);
    Words split{std::istream_iterator<std::string>(words), {}};
    std::replace(split.begin(), split.end(), std::string("''"), std::string());
    return split;
}

inline Words Join(Words words, const Words& more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

// Ends the test with the text when the condition is false.
inline void Check(bool condition, const std::string& otherwise)
{
    if (!condition)
        throw std::runtime_error(otherwise);
}
