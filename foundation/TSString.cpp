#include "TSString.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "DoubleByte.h"
#include "Number.h"
#include "Trace.h"

namespace {

constexpr unsigned char kLastBlank = 32;  // it and all below it are white to Trim

struct Decimal {
    explicit Decimal(long long value) { IntToStr(value, digits); }
    char digits[kIntTextSize];
};

bool IsBlank(char byte)
{
    return static_cast<unsigned char>(byte) <= kLastBlank;
}

bool IsAllDigits(const char* text)
{
    return text[std::strspn(text, "0123456789")] == '\0';
}

// For the operations that take each byte for a character of its own.
bool NoFirstByte(unsigned char)
{
    return false;
}

// These two don't ask the locale, so a byte from 0x80 up never changes.
char ToLower(char byte)
{
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

char ToUpper(char byte)
{
    return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 'a' + 'A') : byte;
}

void ChangeSingles(char* text, char (*change)(char), bool (*isFirst)(unsigned char))
{
    DoubleByteScanner scanner(isFirst);
    for (; *text != '\0'; ++text) {
        if (scanner.Next(*text) == BytePlace::Single)
            *text = change(*text);
    }
}

}  // namespace

TSString::TSString() : TSString("", 0) {}

TSString::TSString(unsigned int value) : TSString(Decimal(value).digits) {}

TSString::TSString(int value) : TSString(Decimal(value).digits) {}

TSString::TSString(int value, int width) : TSString(nullptr, width)
{
    if (width < 0)
        *this = Decimal(value).digits;
    else
        UIntToStr(static_cast<unsigned int>(value), text.get(), width);
}

TSString::TSString(const char* source) : TSString(source == nullptr ? "" : source, INT_MAX) {}

TSString::TSString(const char* source, int limit)
{
    const std::size_t room = limit < 0 ? 0 : static_cast<std::size_t>(limit);
    const std::size_t size = source == nullptr ? room : strnlen(source, room);
    text.reset(new char[size + 1]);
    length = static_cast<std::int32_t>(size);
    if (source == nullptr) {
        text[0] = '\0';
        return;
    }
    std::memcpy(text.get(), source, size);
    text[size] = '\0';
}

TSString::TSString(const TSString& source) : TSString(source.c_str()) {}

void TSString::Swap(TSString& other)
{
    text.swap(other.text);
    std::swap(length, other.length);
}

// The copy is whole before the old buffer goes, since the source may be a part of it.
TSString& TSString::operator=(const char* source)
{
    TSString copy(source);
    Swap(copy);
    return *this;
}

TSString& TSString::operator=(const TSString& source)
{
    if (this != &source)
        *this = source.c_str();
    return *this;
}

TSString& TSString::operator+=(const TSString& tail)
{
    TSString joined = *this + tail;
    Swap(joined);
    return *this;
}

TSString operator+(const TSString& head, const TSString& tail)
{
    TSString joined(nullptr, head.Length() + tail.Length());
    const auto headSize = static_cast<std::size_t>(head.Length());
    char* target = joined;
    std::memcpy(target, head.c_str(), headSize);
    std::memcpy(target + headSize, tail.c_str(), static_cast<std::size_t>(tail.Length()) + 1);
    return joined;
}

bool operator==(const TSString& left, const char* right)
{
    return std::strcmp(left.c_str(), right) == 0;
}

bool operator!=(const TSString& left, const char* right)
{
    return !(left == right);
}

void TSString::Print(bool newline) const
{
    Trace(newline ? (*this + "\n").c_str() : c_str());
}

TSString& TSString::Delete(int position, int count)
{
    const int start = std::clamp(position, 1, length + 1) - 1;
    const int removed = std::clamp(count, 0, length - start);
    return *this = TSString(text.get(), start) + TSString(text.get() + start + removed);
}

TSString& TSString::Insert(const TSString& inserted, int position)
{
    const int start = std::clamp(position, 1, length + 1) - 1;
    return *this = TSString(text.get(), start) + inserted + TSString(text.get() + start);
}

TSString& TSString::SetLength(int newLength)
{
    return newLength < length ? *this = TSString(text.get(), newLength) : *this;
}

TSString& TSString::Trim()
{
    const char* end = text.get() + length;
    const char* first = std::find_if_not(static_cast<const char*>(text.get()), end, IsBlank);
    while (end != first && IsBlank(end[-1]))
        --end;
    return *this = TSString(first, static_cast<int>(end - first));
}

TSString& TSString::Strip(const TSString& set)
{
    char* const end = text.get() + length;
    char* const kept = std::remove_if(text.get(), end, [&set](char byte) {
        return byte != '\0' && std::strchr(set.c_str(), byte) != nullptr;
    });
    *kept = '\0';
    length = static_cast<std::int32_t>(kept - text.get());
    return *this;
}

TSString& TSString::LowerCase()
{
    ChangeSingles(text.get(), ToLower, NoFirstByte);
    return *this;
}

TSString& TSString::UpperCase()
{
    ChangeSingles(text.get(), ToUpper, NoFirstByte);
    return *this;
}

TSString& TSString::LowerCaseSJIS()
{
    ChangeSingles(text.get(), ToLower, IsSjisFirst);
    return *this;
}

TSString& TSString::UpperCaseSJIS()
{
    ChangeSingles(text.get(), ToUpper, IsSjisFirst);
    return *this;
}

TSString& TSString::SQLString(int allBytes)
{
    DoubleByteScanner scanner(allBytes != 0 ? NoFirstByte : IsSjisFirst);
    std::string doubled;
    for (const char* byte = text.get(); *byte != '\0'; ++byte) {
        if (scanner.Next(*byte) == BytePlace::Single && (*byte == '\'' || *byte == '\\'))
            doubled += *byte;
        doubled += *byte;
    }
    return *this = doubled.c_str();
}

TSString TSString::SubString(int position) const
{
    return SubString(position, INT_MAX);
}

TSString TSString::SubString(int position, int count) const
{
    const int start = std::max(position, 1);
    if (start >= length)
        return TSString();
    return TSString(text.get() + start - 1, count);
}

int TSString::AnsiPos(const TSString& sought) const
{
    const char* found = std::strstr(text.get(), sought.c_str());
    return found == nullptr ? 0 : static_cast<int>(found - text.get()) + 1;
}

int TSString::AnsiPosSJIS(const TSString& sought) const
{
    if (sought.length == 0)
        return 1;
    DoubleByteScanner scanner(IsSjisFirst);
    for (int index = 0; index < length; ++index) {
        const char* start = text.get() + index;
        if (scanner.Next(*start) != BytePlace::Second &&
            std::strncmp(start, sought.c_str(), static_cast<std::size_t>(sought.length)) == 0)
            return index + 1;
    }
    return 0;
}

int TSString::ToInt() const
{
    if (!IsAllDigits(text[0] == '-' ? text.get() + 1 : text.get()))
        return 0;
    return static_cast<int>(std::strtol(text.get(), nullptr, 10));
}

long long TSString::ToLongLongInt() const
{
    return IsAllDigits(text.get()) ? std::strtoll(text.get(), nullptr, 10) : 0;
}
