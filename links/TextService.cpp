#include "TextService.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <unistd.h>

#include "Sockets.h"
#include "Text.h"

static constexpr int kStandardStreams = 3;
static constexpr std::size_t kLineSize = 8192;

// Shared by the two receive operations, which return pointers into it.
static char receiveLine[kLineSize + 1];

static bool EndsLine(char byte)
{
    return byte == '\r' || byte == '\n' || byte == '\0';
}

// The result is that of the read. The peer gets the reason of one that failed.
static ssize_t ReadOrReport(int descriptor, char* bytes, std::size_t size)
{
    const ssize_t count = read(descriptor, bytes, size);
    if (count < 0)
        sendmes(descriptor, "%s\r\n", std::strerror(errno));
    return count;
}

void sendmes(int descriptor, const char* format, ...)
{
    if (descriptor < 0)
        return;
    char text[kLineSize];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (length < 0)
        return;
    // `length` is that of the text before it was cut. A lost text is not a failure.
    WriteSocket(descriptor, text, std::string_view(text).size() + 1);
}

char* receivemes(int descriptor)
{
    if (descriptor < kStandardStreams)
        return nullptr;
    const ssize_t count = ReadOrReport(descriptor, receiveLine, kLineSize);
    if (count <= 0)
        return nullptr;
    receiveLine[count] = '\0';
    return skipspace(chop(receiveLine));
}

char* receivemes2(int descriptor)
{
    std::size_t length = 0;
    char byte = 0;
    while (ReadOrReport(descriptor, &byte, 1) > 0) {
        if (EndsLine(byte)) {
            receiveLine[length] = '\0';
            char* const line = skipspace(receiveLine);
            dispstr("Receivemes", descriptor, line);
            return line;
        }
        // The rest of a line that is too long goes, so that the next one begins at its first byte.
        if (length < kLineSize)
            receiveLine[length++] = byte;
    }
    return nullptr;
}

void dispstr(const char* /*label*/, int /*descriptor*/, const char* text)
{
    const std::string_view all(text);
    std::for_each(all.begin(), all.end(), [](unsigned char byte) { return std::isprint(byte); });
}
