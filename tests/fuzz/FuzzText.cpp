// Paths, texts and messages of any content through every helper that takes one.

#include <cstring>

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
    Require(found == 0 || std::strstr(text.c_str() + found - 1, piece.c_str()) != nullptr);
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

static void Lines(std::string text, int limit)
{
    std::string quoted(static_cast<std::size_t>(limit), '\0');
    Require(mystr_escquote(text.data(), quoted.data(), limit) <= limit);
    mystrtoupper(text.data(), nullptr);
    mystrtolower(text.data(), nullptr);
    uncomment(chop(skipspace(text.data())));
    char* rest = text.data();
    while (rest != nullptr)
        car(&rest);
    trimleft(text.data(), static_cast<int>(text.size()));
}

static void Messages(const std::string& bytes, int capacity)
{
    TMidiCom link;
    const int length = static_cast<int>(bytes.size());
    std::string stuffed(2 * bytes.size() + 2, '\0');
    stuffed.resize(
        static_cast<std::size_t>(link.Change_bin2i2c(bytes.data(), stuffed.data(), length)));
    std::string back(stuffed.size(), '\0');
    back.resize(static_cast<std::size_t>(
        link.Change_i2c2bin(stuffed.data(), back.data(), static_cast<int>(stuffed.size()))));
    Require(back == bytes);
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
