#pragma once

#include <string_view>

#include "TSString.h"

// Small work on plain text, most of it in place. Much of it is for the text service and the unit's
// other programs.

// The bytes of a text without its NUL, as the links count them.
inline int TextLength(std::string_view text)
{
    return static_cast<int>(text.size());
}

// True for the blank and for all below it, the line ends and other control characters.
inline bool IsBlank(unsigned char byte)
{
    return byte <= ' ';
}

// True for the blank and for the other characters of ASCII that can be seen.
inline bool IsPrintable(unsigned char byte)
{
    return byte >= ' ' && byte <= '~';
}

// Ends the text at its first CR or LF. Null for null.
char* chop(char* text);

// Where the leading white space has ended. Null for null.
char* skipspace(char* text);

// Ends the text at its first "#". Null for null.
char* uncomment(char* text);

// Cuts the first word off at a blank, FF, LF, CR, TAB or VT and returns it. The caller's pointer
// moves past the cut, or to null at the end of the text.
char* car(char** text);

// The same cut; returns what follows it, or null if there is nothing to cut at.
char* cdr(char* text);

// Copies the source in upper case for the mode 85 ("U"), in lower case for any other. A null
// target means the source itself. Returns the target.
char* str_up_low(char* source, char* target, int mode);
char* mystrtoupper(char* source, char* target);
char* mystrtolower(char* source, char* target);

// Appends what fits: the target never gets longer than size - 1 bytes. Returns the target.
char* mystrcat(char* target, const char* source, int size);

// Copies the source with a backslash before each single and double quote. Ends when the target
// has `limit` bytes, or at a quote with fewer than 3 bytes of room left. Appends a NUL, so the
// target has limit + 1 bytes; with a limit below 0 nothing is written at all. Returns the length
// written.
int mystr_escquote(const char* source, char* target, int limit);

// Overwrites every blank among the first `length` bytes with a NUL, wherever it is.
void trimleft(char* text, int length);

// The leading number of the text, or 0.
int StrToInt(const char* text);

// The value printed with the printf format %<format>f. The format has flags or digits, then a "."
// and digits, such as 5.2; with any other the result is empty.
TSString FormatFloat(const TSString& format, float value);

// True when the text is well-formed Shift-JIS, a pair cut in half at its end included.
bool is_SJIS(const TSString& text);

// The text as one value of a list that blanks or commas separate: wrapped in double quotes, its own
// ones doubled, if there is a tab, a blank, a quote of either kind or a comma in it.
TSString DoubleQuoteString(const TSString& source);
