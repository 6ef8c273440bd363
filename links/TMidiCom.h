#pragma once

// The unit's side of the link to the MIDI Patcher, the process behind a UNIX stream socket through
// which everything reaches the piano.
//
// Connect sequence, once, raw:   FE connecttype
//
// Outgoing, one frame for each write (10 bytes, then stuffed):
//
//    0    1    2            3    4     5 .. 9
//   +----+----+------------+----+------+-----------+
//   | E2 | E0 | connecttype| 06 | kind | data[5]   |
//   +----+----+------------+----+------+-----------+
//
// Incoming, a run of frames (9 bytes once the stuffing is off):
//
//    0    1        2    3     4 .. 8
//   +----+--------+----+------+-----------+
//   | xx | E1, E5 | 06 | kind | data[5]   |
//   +----+--------+----+------+-----------+
//
// Kind of a console frame: 3n, the low three bits the number of text bytes, 7 for the line's end.
// Stuffing: FE is sent as FE FE, and FE FF ends a block.
class TMidiCom {
public:
    // The connect types: which peer is behind the MIDI Patcher.
    static constexpr int kPiano = 225;  // 0xE1
    static constexpr int kOther = 229;  // 0xE5

    // The largest text, message or single read of the link, in bytes.
    static constexpr int kMaxMessage = 8193;
    // The most end frames, and so lines, that one message can hold: 8193 / 9.
    static constexpr int kMaxLines = 910;

    TMidiCom();
    ~TMidiCom();
    TMidiCom(const TMidiCom&) = delete;
    TMidiCom& operator=(const TMidiCom&) = delete;

    // Negative when the link is down.
    int GetMidiDescriptor() const;

    // Connects to the UNIX socket at `path`. Returns the descriptor, or -1. To be called only while
    // the link is down: an old descriptor isn't closed.
    int SetMidiDescriptor(const char* path);

    // The peer behind the i2c server: 225 (0xE1) or 229 (0xE5). Nothing is sent with another value.
    void Set_connecttype(int type);
    int Get_connecttype() const;

    // Sends the connect sequence, once, before any frame. False when the connect type is bad or the
    // write failed; the link stays open either way.
    bool Connect_i2cserver();

    // Sends one MIDI frame. `group` holds four bytes; `kind` chooses the kind byte by its sign (0:
    // C0, above: 80, below: 34). False when the link is down, the connect type is bad or the write
    // failed; the last two close the link.
    bool WriteMidi(int kind, const unsigned char* group);

    // Sends `length` bytes of text, at most 8193, in frames of five and an end frame, which is the
    // line's end. False when the text is too long (nothing is sent), or for the reasons of
    // WriteMidi.
    bool WriteConsole(unsigned char channel, const char* text, int length);

    // Gathers one message into `buf`, which has room for 8193 bytes; no NUL is added. Waits up to
    // 5 seconds for each part of it. Returns the byte count, 0 when the peer has closed (the link
    // goes down), -1 on failure, on silence, on a message over 8193 bytes (over four times as many
    // with its stuffing) or when the link is down; what was gathered is then dropped.
    int ReadMessage(char* buf);

    // Turns a message of ReadMessage into console lines, each ending in CR LF and a NUL, and stores
    // pointers to them in `lines`, which has room for `capacity`. The lines lie in `message` and in
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
    static constexpr int kConsoleSize = 1024;

    bool IsConnecttypeGood() const;
    void CloseLink();
    bool WriteFrame(unsigned char kind, const unsigned char* data);
    void AppendConsoleText(const char* text, int count);
    void EndConsoleLine();

    int midiDescriptor;
    char consoleText[kConsoleSize];
    int consoleLength;
    int connecttype;
    char carriedLine[kConsoleSize];  // the line that began in an earlier message
};
