#pragma once

// Shift-JIS pairs in a text. The second byte of a pair can have the value of a letter or of a
// backslash, so whoever looks for those goes through the text with a scanner.

// True for the first byte of a pair. 0xA1 to 0xDF, the half-width kana, are single bytes.
inline bool IsSjisFirst(unsigned char byte)
{
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
}

enum class BytePlace { Single, First, Second };

class DoubleByteScanner {
public:
    explicit DoubleByteScanner(bool (*firstByteTest)(unsigned char)) : isFirst(firstByteTest) {}

    // The place of the next byte of the text.
    BytePlace Next(unsigned char byte)
    {
        if (place == BytePlace::First)
            place = BytePlace::Second;
        else
            place = isFirst(byte) ? BytePlace::First : BytePlace::Single;
        return place;
    }

private:
    bool (*isFirst)(unsigned char);       // which bytes begin a pair; never null
    BytePlace place = BytePlace::Single;  // that of the last byte
};
