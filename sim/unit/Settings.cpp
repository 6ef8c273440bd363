#include "Settings.h"

#include <cstdlib>
#include <cstring>

#include "Paths.h"
#include "System.h"

namespace {

constexpr int kMostErrno = 133;

BoundedText ControlPath(const char* name)
{
    return InRoot(kSimulation).Add("/").Add(name);
}

}  // namespace

const char* Root()
{
    static const char* root = nullptr;
    if (root == nullptr)  // a test program sets its own root after the library has begun
        root = std::getenv("SIMUNIT_ROOT");
    return root;
}

BoundedText InRoot(const char* path)
{
    BoundedText full;
    full.Add(Root()).Add(path);
    return full;
}

BoundedText ReadControl(const char* name, const char* otherwise)
{
    const KeepErrno kept;
    char text[PATH_MAX] = "";
    BoundedText content;
    const int file = direct::Open(ControlPath(name).Get(), O_RDONLY);
    if (file < 0)
        return content.Add(otherwise);
    const long count = direct::Read(file, text, sizeof(text));
    direct::Close(file);
    return content.Add(text, static_cast<std::size_t>(count > 0 ? count : 0));
}

BoundedText ControlWord(const char* name, const char* otherwise)
{
    const BoundedText content = ReadControl(name, otherwise);
    BoundedText word;
    return word.Add(content.Get(), std::strcspn(content.Get(), " \r\n"));
}

bool ReadControl(const char* name, unsigned long long& number)
{
    return ParseNumber(ControlWord(name).Get(), number);
}

void WriteControl(const char* name, const BoundedText& text)
{
    const KeepErrno kept;
    const int file = direct::Open(ControlPath(name).Get(), O_WRONLY | O_CREAT | O_TRUNC);
    if (file < 0)
        return;
    direct::Write(file, text.Get(), text.Length());
    direct::Close(file);
}

int ErrnoOf(const char* text)
{
    unsigned long long number = 0;
    if (ParseNumber(text, number))
        return static_cast<int>(number);
    for (int error = 1; error <= kMostErrno; ++error) {
        const char* name = strerrorname_np(error);
        if (name != nullptr && std::strcmp(name, text) == 0)
            return error;
    }
    return 0;
}

bool ParseNumber(const char* text, unsigned long long& number)
{
    constexpr unsigned kDecimal = 10;
    const auto isDigit = [](char letter) { return letter >= '0' && letter <= '9'; };
    if (!isDigit(*text))
        return false;
    for (number = 0; isDigit(*text); ++text)
        number = number * kDecimal + static_cast<unsigned>(*text - '0');
    return true;
}
