#include "TSString.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "DoubleByte.h"
#include "Number.h"
#include "Text.h"
#include "Trace.h"

namespace {

// The digits of a value for as long as a constructor needs them.
struct Decimal {
    explicit Decimal(long long value) { IntToStr(value, digits); }
    char digits[kIntTextSize];  // with a "-" where the value is negative, and a NUL
};

// For the operations that take each byte for a character of its own.
bool NoFirstByte(unsigned char)
{
    return false;
}

char Shifted(char letter, int distance)
{
    return static_cast<char>(letter + distance);
}

// These two don't ask the locale, so a byte from 0x80 up never changes.
char ToLower(char byte)
{
    return byte >= 'A' && byte <= 'Z' ? Shifted(byte, 'a' - 'A') : byte;
}

char ToUpper(char byte)
{
    return byte >= 'a' && byte <= 'z' ? Shifted(byte, 'A' - 'a') : byte;
}

// The scanner must see the bytes in their order, which transform doesn't promise.
void ChangeSingles(char* text, char (*change)(char))
{
    DoubleByteScanner scanner(IsSjisFirst);
    for (; *text != '\0'; ++text) {
        if (scanner.Next(*text) == BytePlace::Single)
            *text = change(*text);
    }
}

// Positions count from 1, and 0 means none.
int PositionAt(std::size_t index)
{
    return index == std::string_view::npos ? 0 : static_cast<int>(index) + 1;
}

}  // namespace

TSString::TSString() : TSString("", 0) {}

TSString::TSString(unsigned int value) : TSString(Decimal(value).digits) {}

TSString::TSString(int value) : TSString(Decimal(value).digits) {}

TSString::TSString(int value, int width) : TSString(nullptr, width)
{
    // A negative value at a width has no sign: its bits count, as in a field of fixed size.
    const unsigned int bits = value;
    if (width < 0)
        *this = Decimal(value).digits;
    else
        UIntToStr(bits, text.get(), width);
}

// Passed on, a null source would ask for a buffer to fill.
TSString::TSString(const char* source) : TSString(source == nullptr ? "" : source, INT_MAX) {}

TSString::TSString(const char* source, int limit) : length(std::max(limit, 0))
{
    if (source != nullptr)
        length = static_cast<std::int32_t>(strnlen(source, length));
    text.reset(new char[length + std::size_t{1}]);
    // The buffer form gets its bytes from the caller, so only the empty text is written here.
    const int copied = source == nullptr ? 0 : length;
    *std::copy_n(source, copied, text.get()) = '\0';
}

// By the text and not by the length: of a buffer that isn't full only the text is copied.
TSString::TSString(const TSString& source) : TSString(source.c_str()) {}

// The old buffer goes with `other`, at the end of its scope.
void TSString::Swap(TSString& other)
{
    text.swap(other.text);
    std::swap(length, other.length);
}

TSString& TSString::Replace(int start, int removed, const char* inserted, int count)
{
    // The new text is complete before the old buffer goes, since `inserted` may be a part of it.
    TSString edited(nullptr, length - removed + count);
    char* end = std::copy_n(text.get(), start, edited.text.get());
    end = std::copy_n(inserted, count, end);
    const int rest = start + removed;
    std::copy_n(text.get() + rest, length - rest + 1, end);  // the NUL included
    Swap(edited);
    return *this;
}

TSString& TSString::operator=(const char* source)
{
    TSString copy(source);  // before the old buffer goes: the source may be a part of it
    Swap(copy);
    return *this;
}

TSString& TSString::operator=(const TSString& source)
{
    // A buffer that isn't full yet would lose its length by a copy of its own text.
    if (this != &source)
        *this = source.c_str();
    return *this;
}

TSString& TSString::operator+=(const TSString& tail)
{
    return Replace(length, 0, tail.c_str(), tail.length);
}

// Not by way of +=, which would copy the head twice.
TSString operator+(const TSString& head, const TSString& tail)
{
    TSString joined(nullptr, head.Length() + tail.Length());
    char* const target = joined;
    char* const middle = std::copy_n(head.c_str(), head.Length(), target);
    std::copy_n(tail.c_str(), tail.Length() + 1, middle);
    return joined;
}

// The texts count, so a buffer that isn't full compares by what is in it.
bool operator==(const TSString& left, const char* right)
{
    return std::string_view(left.c_str()) == right;
}

bool operator!=(const TSString& left, const char* right)
{
    return !(left == right);
}

void TSString::Print(bool newline) const
{
    if (newline)
        TraceLine(c_str(), "");
    else
        Trace(c_str());
}

TSString& TSString::Delete(int position, int count)
{
    // One past the end is a position, too: nothing is removed there, whatever the count.
    const int start = std::clamp(position, 1, length + 1) - 1;
    return Replace(start, std::clamp(count, 0, length - start), "", 0);
}

TSString& TSString::Insert(const TSString& inserted, int position)
{
    const int start = std::clamp(position, 1, length + 1) - 1;
    return Replace(start, 0, inserted.c_str(), inserted.length);
}

TSString& TSString::SetLength(int newLength)
{
    // There are no bytes to fill a longer text with, so it only gets shorter.
    const int kept = std::clamp(newLength, 0, length);
    return kept == length ? *this : Replace(kept, length - kept, "", 0);
}

TSString& TSString::Trim()
{
    // The end first: a text of blanks alone is then empty before the start is looked for.
    int end = length;
    while (end > 0 && IsBlank(text[end - 1]))
        --end;
    int start = 0;
    while (start < end && IsBlank(text[start]))
        ++start;
    return Replace(0, length, text.get() + start, end - start);
}

TSString& TSString::Strip(const TSString& set)
{
    // In place, and not by Replace: each kept byte moves to the left or stays.
    const std::string_view marks(set.c_str());
    int kept = 0;
    for (int i = 0; i < length; ++i) {
        if (marks.find(text[i]) == std::string_view::npos)
            text[kept++] = text[i];
    }
    text[kept] = '\0';
    length = kept;
    return *this;
}

TSString& TSString::LowerCase()
{
    std::transform(text.get(), text.get() + length, text.get(), ToLower);
    return *this;
}

TSString& TSString::UpperCase()
{
    std::transform(text.get(), text.get() + length, text.get(), ToUpper);
    return *this;
}

TSString& TSString::LowerCaseSJIS()
{
    ChangeSingles(text.get(), ToLower);
    return *this;
}

TSString& TSString::UpperCaseSJIS()
{
    ChangeSingles(text.get(), ToUpper);
    return *this;
}

TSString& TSString::SQLString(int allBytes)
{
    DoubleByteScanner scanner(allBytes != 0 ? NoFirstByte : IsSjisFirst);
    TSString doubled(nullptr, 2 * length);
    char* end = doubled.text.get();
    for (const char byte : std::string_view(c_str())) {
        if (scanner.Next(byte) == BytePlace::Single && (byte == '\'' || byte == '\\'))
            *end++ = byte;
        *end++ = byte;
    }
    *end = '\0';
    doubled.length = static_cast<std::int32_t>(end - doubled.text.get());
    Swap(doubled);
    return *this;
}

TSString TSString::SubString(int position) const
{
    return SubString(position, INT_MAX);
}

TSString TSString::SubString(int position, int count) const
{
    const int start = std::max(position, 1);
    // The last byte alone is never returned; callers rely on this.
    if (start >= length)
        return TSString();
    return TSString(text.get() + start - 1, count);
}

int TSString::AnsiPos(const TSString& sought) const
{
    return PositionAt(std::string_view(c_str()).find(sought.c_str()));
}

int TSString::AnsiPosSJIS(const TSString& sought) const
{
    const std::string_view all(c_str());
    const std::string_view part(sought.c_str());
    // Found at once, also in an empty text, which the loop never enters.
    if (part.empty())
        return 1;
    DoubleByteScanner scanner(IsSjisFirst);
    for (std::size_t index = 0; index < all.size(); ++index) {
        const bool mayBegin = scanner.Next(all[index]) != BytePlace::Second;
        if (mayBegin && all.substr(index, part.size()) == part)
            return PositionAt(index);
    }
    return 0;
}

int TSString::ToInt() const
{
    // strtol would accept blanks, a "+" and whatever follows the digits.
    const char* const digits = text[0] == '-' ? text.get() + 1 : text.get();
    return IsAllDigits(digits) ? StrToInt(c_str()) : 0;
}

long long TSString::ToLongLongInt() const
{
    return IsAllDigits(c_str()) ? std::strtoll(c_str(), nullptr, 10) : 0;
}
