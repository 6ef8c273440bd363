#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

// A text of bytes in a buffer of its own, ended by a NUL, which therefore can't be part of a value.
//
// Three index rules apply throughout: positions given and returned count from 1 (0 from a search
// means "not found"), operator[] counts from 0, and lengths are in bytes, not in characters.
// Positions below 1 count as 1, counts and limits below 0 as 0.
//
// The operations with SJIS in their name never take the second byte of a Shift-JIS pair, which may
// have the value of a letter or a backslash, for a character of its own.
//
// The program builds texts, takes parts of them, trims and strips them. Everything else is for the
// unit's other programs, which use the same class: Delete, Insert, SetLength, the operations of
// case, SQLString, the searches and the reading of numbers.
class TSString {
public:
    TSString();
    TSString(unsigned int value);  // decimal digits
    TSString(int value);           // the same, with a "-" where it is negative

    // Exactly `width` digits: zero-filled on the left, the value's bits read as unsigned, digits
    // that don't fit dropped from the left. A negative width means TSString(value).
    TSString(int value, int width);

    // A copy; null makes an empty string.
    TSString(const char* source);

    // A copy of at most `limit` bytes. With a null source the object gets an empty buffer of
    // limit + 1 bytes and the length `limit` at once, for code of this class to fill.
    TSString(const char* source, int limit);

    TSString(const TSString& source);
    ~TSString() = default;

    TSString& operator=(const char* source);
    TSString& operator=(const TSString& source);
    TSString& operator+=(const TSString& tail);

    // No bounds check; the NUL after the text may be read.
    char& operator[](int index) const { return text[index]; }

    // The text itself. Who writes through it must not change its C length.
    operator char*() { return text.get(); }
    const char* c_str() const { return text.get(); }

    int Length() const { return length; }

    // Prints the text on standard output, followed by a line end if `newline` is true.
    void Print(bool newline) const;

    // The editing operations change the object and return it.

    // Removes `count` bytes at the position, or as many as there are.
    TSString& Delete(int position, int count);

    // Inserts before the position; a position past the end appends.
    TSString& Insert(const TSString& inserted, int position);

    // Only shortens: a value of the current length or more changes nothing.
    TSString& SetLength(int newLength);

    // Removes bytes of value 32 or lower from both ends.
    TSString& Trim();

    // Removes every byte that occurs in the set, wherever it is.
    TSString& Strip(const TSString& set);

    // ASCII letters only, whatever pair they may be part of.
    TSString& LowerCase();
    TSString& UpperCase();
    TSString& LowerCaseSJIS();
    TSString& UpperCaseSJIS();

    // Doubles each single quote and each backslash. With `allBytes` 0 those in second place of a
    // Shift-JIS pair are left alone.
    TSString& SQLString(int allBytes);

    // The text from the position on. A position of the length or more returns an empty string, so
    // the last byte alone is never returned.
    TSString SubString(int position) const;

    // At most `count` bytes from the position; the same rule for the position.
    TSString SubString(int position, int count) const;

    // Position of the first occurrence, or 0. An empty argument is found at 1.
    int AnsiPos(const TSString& sought) const;
    int AnsiPosSJIS(const TSString& sought) const;

    // The value of a text that is all digits, with a "-" allowed as its very first byte. 0 for any
    // other text.
    int ToInt() const;

    // The same without the "-": 0 for a negative number.
    long long ToLongLongInt() const;

private:
    void Swap(TSString& other);

    // Puts `count` bytes of `inserted` in the place of the `removed` bytes that follow the first
    // `start`. Insertions and deletions go through here, with one allocation each.
    TSString& Replace(int start, int removed, const char* inserted, int count);

    std::unique_ptr<char[]> text;  // never null; a NUL follows the value
    std::int32_t length = 0;       // bytes, without the NUL
};

TSString operator+(const TSString& head, const TSString& tail);
bool operator==(const TSString& left, const char* right);
bool operator!=(const TSString& left, const char* right);
