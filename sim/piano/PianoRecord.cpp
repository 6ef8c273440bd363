#include "PianoRecord.h"

#include "Hex.h"

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
        text += Hex(byte, 2);
        sum += byte;
    };
    append(static_cast<unsigned>(data.size()));
    append(static_cast<unsigned>(address) >> 8);
    append(address & 0xFFU);
    append(type);
    for (const unsigned char byte : data)
        append(byte);
    append(0x100U - (sum & 0xFFU));
    return text;
}
