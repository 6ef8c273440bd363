#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

// A text of bounded length, built without heap, locale or stdio, since hooks run before the
// program's runtime is set up. A longer text is cut, which IsCut() reports.
class BoundedText {
public:
    const char* Get() const { return bytes; }
    std::size_t Length() const { return length; }
    bool IsCut() const { return cut; }

    bool EndsWith(const char* end) const
    {
        const std::size_t size = std::strlen(end);
        return size <= length && std::strcmp(bytes + length - size, end) == 0;
    }

    // All of the text, or at most `most` bytes.
    BoundedText& Add(const char* text, std::size_t most = SIZE_MAX)
    {
        for (; most > 0 && *text != '\0'; ++text, --most)
            AddByte(*text);
        return *this;
    }

    // At least `digits` digits.
    BoundedText& AddNumber(unsigned long long number, unsigned digits = 1, unsigned base = 10)
    {
        char reversed[kMostDigits];
        unsigned count = 0;
        for (; count < digits || number > 0; number /= base)
            reversed[count++] = "0123456789abcdef"[number % base];
        while (count > 0)
            AddByte(reversed[--count]);
        return *this;
    }

    BoundedText& AddHex(unsigned long long number) { return Add("0x").AddNumber(number, 1, 16); }

private:
    static constexpr unsigned kMostDigits = 24;

    void AddByte(char byte)
    {
        if (length + 1 >= sizeof(bytes)) {
            cut = true;
            return;
        }
        bytes[length++] = byte;
        bytes[length] = '\0';
    }

    char bytes[PATH_MAX + 256] = "";
    std::size_t length = 0;
    bool cut = false;
};
