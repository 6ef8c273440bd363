#include "TextService.h"

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "Sockets.h"
#include "Text.h"

static constexpr int kStandardStreams = 3;
static constexpr std::size_t kLineSize = 8192;

// Shared by the two receive operations, which hand out pointers into it.
static char receiveLine[kLineSize + 1];

static void TellError(int descriptor)
{
    sendmes(descriptor, "%s\r\n", std::strerror(errno));
}

static bool EndsLine(char byte)
{
    return byte == '\r' || byte == '\n' || byte == '\0';
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
    WriteSocket(descriptor, text, std::strlen(text) + 1);  // a lost text is no failure
}

char* receivemes(int descriptor)
{
    if (descriptor < kStandardStreams)
        return nullptr;
    const ssize_t count = read(descriptor, receiveLine, kLineSize);
    if (count < 0)
        TellError(descriptor);
    if (count <= 0)
        return nullptr;
    receiveLine[count] = '\0';
    return skipspace(chop(receiveLine));
}

char* receivemes2(int descriptor)
{
    std::size_t length = 0;
    while (true) {
        char byte = 0;
        const ssize_t count = read(descriptor, &byte, 1);
        if (count < 0)
            TellError(descriptor);
        if (count <= 0)
            return nullptr;
        if (EndsLine(byte))
            break;
        if (length < kLineSize)
            receiveLine[length++] = byte;
    }
    receiveLine[length] = '\0';
    char* line = skipspace(chop(receiveLine));
    dispstr("Receivemes", descriptor, line);
    return line;
}

void dispstr(const char* /*label*/, int /*descriptor*/, const char* text)
{
    for (; *text != '\0'; ++text)
        static_cast<void>(std::isprint(static_cast<unsigned char>(*text)));
}
