#include "PianoRecord.h"

static int Digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

static void AppendByte(std::string& text, unsigned value)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    text += kDigits[(value >> 4) & 0x0FU];
    text += kDigits[value & 0x0FU];
}

std::optional<uint32_t> HexDigits(const std::string& text, size_t at, size_t digits)
{
    if (at > text.size() || text.size() - at < digits)
        return std::nullopt;
    uint32_t value = 0;
    for (size_t i = at; i < at + digits; ++i) {
        const int digit = Digit(text[i]);
        if (digit < 0)
            return std::nullopt;
        value = (value << 4) | static_cast<uint32_t>(digit);
    }
    return value;
}

std::string EightDigits(uint32_t value)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        AppendByte(text, value >> shift);
    return text;
}

std::optional<PianoRecord> PianoRecord::FromText(const std::string& text)
{
    if (text.size() < 11 || text.size() % 2 == 0 || text[0] != ':')
        return std::nullopt;
    std::vector<unsigned char> bytes;
    unsigned sum = 0;
    for (size_t at = 1; at < text.size(); at += 2) {
        const auto value = HexDigits(text, at, 2);
        if (!value)
            return std::nullopt;
        bytes.push_back(static_cast<unsigned char>(*value));
        sum += *value;
    }
    // Count, address and type precede the data, the checksum follows it.
    if (bytes.size() != bytes[0] + 5U || (sum & 0xFFU) != 0)
        return std::nullopt;

    PianoRecord record;
    record.type = bytes[3];
    record.address = static_cast<uint16_t>((bytes[1] << 8) | bytes[2]);
    record.data.assign(bytes.begin() + 4, bytes.end() - 1);
    if (record.type == kLinearAddress && record.data.size() != 2)
        return std::nullopt;
    return record;
}

std::string PianoRecord::ToText() const
{
    std::string text = ":";
    unsigned sum = 0;
    const auto append = [&](unsigned byte) {
        AppendByte(text, byte);
        sum += byte;
    };
    append(static_cast<unsigned>(data.size()));
    append(static_cast<unsigned>(address) >> 8);
    append(address & 0xFFU);
    append(type);
    for (const unsigned char byte : data)
        append(byte);
    AppendByte(text, (0x100U - (sum & 0xFFU)) & 0xFFU);
    return text;
}
