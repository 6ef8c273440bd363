#include "Console.h"

#include <unistd.h>

#include "Hex.h"
#include "Text.h"

static constexpr unsigned char kChannel = 0;
static constexpr std::size_t kAddressPlace = 3;

ConsoleLine::ConsoleLine(const char* message)
    : length(std::string_view(message).copy(text, kSize - 1))
{
    text[length] = '\0';
}

bool ConsoleLine::BeginsWith(std::string_view answer) const
{
    return std::string_view(text, length).substr(0, answer.size()) == answer;
}

unsigned int ConsoleLine::Address() const
{
    // The NUL is no digit, so a line that ends among them has no address either.
    return length > kAddressPlace ? HexToUInt(text + kAddressPlace, kAddressDigits) : 0;
}

// The line end is a frame that the link adds.
void SendLine(TMidiCom* midi, const char* line)
{
    midi->WriteConsole(kChannel, line, TextLength(line));
}

void AskForStatus(TMidiCom* midi, const MidiGroup& firstGroup, unsigned wait)
{
    midi->WriteMidi(0, firstGroup.data());
    midi->WriteMidi(0, kEnterFlashMode.data());
    if (wait != 0)
        usleep(wait);
    SendLine(midi, kAskStatus);
}
