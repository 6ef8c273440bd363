#pragma once

#include <string_view>

#include "UniqueFd.h"

// The link to the MIDI Patcher, the process at the other end of a UNIX stream socket through which
// everything reaches the piano and its CSP.
//
// Passive: the owner's loop watches GetMidiDescriptor() and calls ReadMessage() when it is
// readable. A failed frame closes the link. Nothing here reopens it, knows what the console lines
// mean, or writes to a log; all that is the owner's.
//
// After connecting, the two bytes FE connecttype go out once, as they are. All else is stuffed:
// each FE is doubled, and FE FF ends a block.
//
// An outgoing frame has ten bytes, is a block of its own and leaves in one write:
//    0    1         2        3     4      5 .. 9      kind C0, 80, 34: a MIDI group as
//   +----+----+-------------+----+------+------------+      [3], [0], [1], [2], 0
//   | E2 | E0 | connecttype | 06 | kind | five bytes |  kind 31 .. 35: 1 to 5 bytes of text
//   +----+----+-------------+----+------+------------+  kind 37: the end of the line, zeros
//
// An incoming frame has nine:
//    0    1        2    3      4 .. 8
//   +----+--------+----+------+------------+  kind 31 .. 36: 1 to 5 bytes of text; 37: the end of
//   | xx | E1, E5 | 06 | kind | five bytes |  the line; 38 .. 3F are the same on another channel;
//   +----+--------+----+------+------------+  any other kind: no text
//
// A message is a run of incoming frames up to one with 7 in the low three bits of its kind. At 225
// the line "STATUS" is on the socket
//   E2 E0 E1 06 35 53 54 41 54 55 FE FF   E2 E0 E1 06 31 53 00 00 00 00 FE FF
//   E2 E0 E1 06 37 00 00 00 00 00 FE FF
class TMidiCom {
public:
    // The connect types: which peer the MIDI Patcher connects to.
    static constexpr int kPiano = 225;  // 0xE1
    static constexpr int kOther = 229;  // 0xE5

    // The largest text, message or single read of the link, in bytes.
    static constexpr int kMaxMessage = 8193;
    // Bytes of an incoming frame, without its stuffing.
    static constexpr int kInFrameSize = 9;
    // The most end frames, and so lines, that one message can have.
    static constexpr int kMaxLines = kMaxMessage / kInFrameSize;
    // Seconds that the MIDI Patcher gets to make room: it may wait for the CSP, which counts as
    // silent after as long.
    static constexpr int kMostWait = 30;
    // Room for a console line, its CR LF and its NUL included.
    static constexpr int kConsoleSize = 1024;

    TMidiCom();
    ~TMidiCom();
    TMidiCom(const TMidiCom&) = delete;
    TMidiCom& operator=(const TMidiCom&) = delete;

    // Negative when the link is down.
    int GetMidiDescriptor() const;

    // Connects to the UNIX socket at `path`. Returns the descriptor, or -1. To be called only while
    // the link is down: an old descriptor isn't closed.
    int SetMidiDescriptor(const char* path);

    // From the next connection on, a frame that the MIDI Patcher doesn't take within kMostWait
    // seconds fails.
    void BoundWaits() { isBounded = true; }

    // 225 or 229; to be set before anything is sent. Nothing is sent with another value. The
    // program never asks for it back; Get_connecttype is for the unit's other programs.
    void Set_connecttype(int type);
    int Get_connecttype() const;

    // Sends the connect sequence, once, before any frame. False when the connect type is bad or the
    // write failed; the link stays open either way.
    bool Connect_i2cserver();

    // Sends one MIDI frame. `group` points to four bytes; `kind` chooses the kind byte by its sign
    // (0: C0, above: 80, below: 34). False when the link is down, the connect type is bad or the
    // write failed; the last two close the link.
    bool WriteMidi(int kind, const unsigned char* group);

    // Sends one line of 0 to 8193 bytes, without a line end: the end frame is the line end. False
    // when `length` is larger (nothing is sent, the link stays up), or for the reasons of
    // WriteMidi.
    bool WriteConsole(unsigned char channel, const char* text, int length);

    // Gathers one message into `buf`, which has room for 8193 bytes; no NUL is added, and nothing
    // past the message changes. Waits up to 5 seconds for each part of it. Returns the byte count,
    // 0 when the peer has closed (the link goes down), -1 on failure, on silence, when the link is
    // down, and above 8193 bytes of the message or 32,772 on the socket. What was gathered is then
    // dropped.
    int ReadMessage(char* buf);

    // Turns a message of ReadMessage into console lines, each ending in CR LF and a NUL, and stores
    // pointers to them in `lines`, which has room for `capacity`. The lines are in `message` and in
    // this object and are good until the next call. An unfinished line is kept and goes on with the
    // next message. Text past 1,021 bytes of a line and lines past `capacity` are dropped. Returns
    // the number of lines, or -1 on a frame with a wrong byte 1 or 2.
    int ToConsole2(char* message, int length, char** lines, int capacity = 100);

    // ReadMessage and ToConsole2 in one. `message` has room for 8193 bytes. The result is that of
    // ToConsole2, or of ReadMessage when that brought nothing.
    int ReadConsoleMessage2(char* message, char** lines, int capacity = 100);

    // Stuffs `length` bytes and ends the block. `out` needs room for 2 * length + 2 bytes. Returns
    // the length of the result.
    int Change_bin2i2c(const char* in, char* out, int length) const;

    // Takes the stuffing off `length` bytes. `out` needs room for as many. Returns the length of
    // the result. A pair cut in two by the end of `in` isn't recognised.
    int Change_i2c2bin(const char* in, char* out, int length) const;

private:
    bool IsConnecttypeGood() const;
    bool WriteFrame(int kind, std::string_view data);
    bool SendFrame(int kind, std::string_view data) const;
    int ReadPiece(char* raw);
    bool TakeFrame(std::string_view frame);

    UniqueFd midiDescriptor{-1};          // below 0 while the link is down
    char consoleText[kConsoleSize] = {};  // the line that is being put together
    int consoleLength = 0;                // bytes in consoleText
    bool isBounded = false;               // no write waits for longer than kMostWait
    int connecttype = 0;                  // 225 or 229; anything else until it is set
    char carriedLine[kConsoleSize] = {};  // a finished line that began in an earlier message
};
