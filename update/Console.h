#pragma once

// The conversation with the CSP, which talks in short lines of text: a line goes out without a line
// end and comes back with CR LF.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "HexFormat.h"
#include "TMidiCom.h"

inline constexpr unsigned kFlashModeWait = 500000;   // microseconds from flash mode to the console
inline constexpr std::uint32_t kReadBlock = 0x1000;  // bytes of flash for each request

// A MIDI message, or a group of the controller.
inline constexpr int kGroupSize = 4;  // bytes
using MidiGroup = std::array<unsigned char, kGroupSize>;

// The groups that bring the CSP into flash mode: the first differs between the machines.
inline constexpr MidiGroup kWriteFlashMode = {0xBF, 0x00, 0x7F, 0x00};
inline constexpr MidiGroup kReadFlashMode = {0xBF, 0x00, 0x00, 0x7F};
inline constexpr MidiGroup kEnterFlashMode = {0xBF, 0x66, 0x01, 0x00};

// The lines that are sent in more than one place.
inline constexpr char kAskStatus[] = "STATUS";
inline constexpr char kAskNext[] = "NEXT   :";
inline constexpr char kAskToCancel[] = "CANCEL :";

// The answer to kAskStatus that both machines wait for.
inline constexpr char kFlashIdle[] = "Status:Flash Idle";

// Texts for the controller that come from both.
inline constexpr char kConnectingText[] = "Connecting to CSP\n";
inline constexpr char kNotConnectedText[] = "CSP is not connected.\n";

// An answer of the CSP, copied out of the link's buffer and cut at 1,023 bytes.
class ConsoleLine {
public:
    explicit ConsoleLine(const char* message);

    const char* Text() const { return text; }
    bool BeginsWith(std::string_view answer) const;

    // The address of an "OK" or "NG": eight hexadecimal digits that follow the word and one
    // character. 0 when one of them is no digit.
    unsigned int Address() const;

private:
    static constexpr std::size_t kSize = TMidiCom::kConsoleSize;

    char text[kSize] = {};   // up to its NUL
    std::size_t length = 0;  // bytes, the NUL not included
};

// Sends one line, a NUL-terminated text, on channel 0. A lost link shows up as silence.
void SendLine(TMidiCom* midi, const char* line);

// Brings the CSP into flash mode and after `wait` microseconds, if any, asks for its status.
void AskForStatus(TMidiCom* midi, const MidiGroup& firstGroup, unsigned wait = kFlashModeWait);
