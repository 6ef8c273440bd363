// Paths, texts and messages of any content through every helper that takes one.

#include <cstring>
#include <vector>

#include "FuzzInput.h"
#include "Hex.h"
#include "Path.h"
#include "TMidiCom.h"
#include "TSString.h"
#include "Text.h"

static void Strings(const TSString& text, const TSString& piece, int number)
{
    const int length = text.Length();
    TSString work(text);
    work.Delete(number, number / 2);
    Require(work.Length() <= length);
    work.Insert(piece, number);
    work.SetLength(number);
    work = text;
    Require(work.Trim().Length() <= length);
    work.Strip(piece);
    work.LowerCase().UpperCase().LowerCaseSJIS().UpperCaseSJIS();
    Require(work.SQLString(number % 2).Length() <= 2 * length);
    Require(text.SubString(number).Length() <= length);
    Require(text.SubString(number, number / 3).Length() <= length);
    const int found = text.AnsiPos(piece);
    Require(found == 0 ||
            std::strncmp(text.c_str() + found - 1, piece.c_str(), std::strlen(piece.c_str())) == 0);
    text.AnsiPosSJIS(piece);
    text.ToLongLongInt();
    is_SJIS(text);
    Require(DoubleQuoteString(text).Length() <= 2 * length + 2);
    SHexToUInt(text, 0);
    ExtractFileExtSX(text);
    Require(ExtractFileNameSX(text).Length() <= length &&
            ExtractFileDirSX(text).Length() <= length);
    if (length < 1000)
        ChangeFileExtSX(text, ".bin");
}

// Buffers are vectors of exact size, so that the sanitizer sees each byte past their ends.
static void Lines(const std::string& source, int limit)
{
    std::vector<char> text(source.c_str(), source.c_str() + source.size() + 1);
    std::vector<char> quoted(static_cast<std::size_t>(limit) + 1);
    Require(mystr_escquote(text.data(), quoted.data(), limit) <= limit);
    mystrtoupper(text.data(), nullptr);
    mystrtolower(text.data(), nullptr);
    uncomment(chop(skipspace(text.data())));
    char* rest = text.data();
    while (rest != nullptr)
        car(&rest);
    trimleft(text.data(), static_cast<int>(source.size()));
}

static void Messages(const std::string& bytes, int capacity)
{
    TMidiCom link;
    const int length = static_cast<int>(bytes.size());
    std::vector<char> stuffed(2 * bytes.size() + 2);
    const int wire = link.Change_bin2i2c(bytes.data(), stuffed.data(), length);
    std::vector<char> sent(stuffed.begin(), stuffed.begin() + wire);
    std::vector<char> back(sent.size());
    back.resize(static_cast<std::size_t>(link.Change_i2c2bin(sent.data(), back.data(), wire)));
    Require(bytes == std::string(back.begin(), back.end()));
    back.shrink_to_fit();
    char* lines[8];
    Require(link.ToConsole2(back.data(), length, lines, capacity) <= capacity);
}

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size)
{
    Feed feed(std::string(data, size));
    const int number = feed.Byte() - 16;
    const std::string other = feed.Text(feed.Byte() % 16);
    const std::string source = feed.Text(size);
    Strings(source.c_str(), other.c_str(), number);
    Lines(source.substr(0, source.find('\0')), number < 0 ? 0 : number);
    Messages(source, number & 7);
    return 0;
}
