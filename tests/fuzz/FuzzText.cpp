// Passes paths, texts and messages of any content to the helpers. Buffers have their exact size, so
// that the sanitizer sees each byte past their ends.

#include <vector>

#include "FuzzInput.h"
#include "Path.h"
#include "TMidiCom.h"

static void TakeTexts(const TSString& text, const TSString& piece, int number)
{
    const int length = text.Length();
    TSString(text).Delete(number, number / 2).Insert(piece, number).SetLength(number);
    Require(TSString(text).Strip(piece).Trim().LowerCaseSJIS().UpperCaseSJIS().Length() <= length);
    Require(TSString(text).SQLString(number % 2).Length() <= 2 * length);
    Require(text.SubString(number, number / 3).Length() <= length);
    Require(text.AnsiPos(piece) <= length + 1 && text.AnsiPosSJIS(piece) <= length + 1);
    for (const auto extract : {ExtractFileExtSX, ExtractFileNameSX, ExtractFileDirSX})
        Require(extract(text).Length() <= length);
    Require(ChangeFileExtSX(text, piece).Length() <= length + piece.Length());
}

static void TakeMessage(const std::string& bytes, int capacity)
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
    std::string input(data, size);
    const int number = TakeByte(input) - 16;
    const std::string other = TakeText(input, TakeByte(input) % 16);
    TakeTexts(input.c_str(), other.c_str(), number);
    TakeMessage(input, number & 7);
    return 0;
}
