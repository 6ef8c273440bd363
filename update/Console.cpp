#include "Console.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "Hex.h"

static constexpr unsigned char kEnterFlash[kMidiGroupSize] = {0xBF, 0x66, 0x01, 0x00};
static constexpr unsigned char kChannel = 0;
static constexpr int kAddressPlace = 3;
static constexpr int kAddressDigits = 8;

ConsoleLine::ConsoleLine(const char* message) : text()
{
    const std::size_t length = std::min(std::strlen(message), sizeof(text) - 1);
    std::memcpy(text, message, length);
}

bool ConsoleLine::BeginsWith(const char* answer) const
{
    return strcompare(text, answer, 0, static_cast<int>(std::strlen(answer)) - 1);
}

unsigned int ConsoleLine::Address() const
{
    return HexToUInt(text + kAddressPlace, kAddressDigits);
}

void SendLine(TMidiCom* midi, const char* line)
{
    midi->WriteConsole(kChannel, line, static_cast<int>(std::strlen(line)));
}

void SendFlashMode(TMidiCom* midi, const unsigned char (&firstGroup)[kMidiGroupSize])
{
    midi->WriteMidi(0, firstGroup);
    midi->WriteMidi(0, kEnterFlash);
}
