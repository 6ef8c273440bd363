// Paths and texts of any content through every helper that takes one.

#include <cctype>
#include <cstring>
#include <vector>

#include "FuzzInput.h"
#include "Hex.h"
#include "Path.h"
#include "TSString.h"
#include "Text.h"

static void Strings(const std::string& source, const std::string& other, int number)
{
    const TSString text(source.c_str());
    const TSString piece(other.c_str());
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
}

static void Paths(const std::string& source)
{
    const TSString path(source.c_str());
    ExtractFileExtSX(path);
    Require(ExtractFileNameSX(path).Length() <= path.Length());
    Require(ExtractFileDirSX(path).Length() <= path.Length());
    if (path.Length() < 1000)
        ChangeFileExtSX(path, ".bin");
}

static void Lines(const std::string& source, int limit)
{
    std::vector<char> text(source.c_str(), source.c_str() + std::strlen(source.c_str()) + 1);
    Require(*skipspace(text.data()) == '\0' ||
            std::isspace(static_cast<unsigned char>(*skipspace(text.data()))) == 0);
    std::vector<char> quoted(static_cast<std::size_t>(limit) + 1);
    Require(mystr_escquote(text.data(), quoted.data(), limit) <= limit);
    mystrtoupper(text.data(), nullptr);
    mystrtolower(text.data(), nullptr);
    uncomment(chop(text.data()));
    char* rest = text.data();
    while (rest != nullptr)
        car(&rest);
    trimleft(text.data(), static_cast<int>(text.size()) - 1);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Feed feed(data, size);
    const int number = feed.Byte() - 16;
    const std::string other = feed.Text(feed.Byte() % 16);
    const std::string source = feed.Text(size);
    Strings(source, other, number);
    Paths(source);
    Lines(source, number < 0 ? 0 : number);
    return 0;
}
