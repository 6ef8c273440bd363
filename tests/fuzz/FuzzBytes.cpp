// Any bytes as a firmware file, as a stream of records, as a compressed file, and as texts and
// messages for the helpers: rows, addresses and lengths are bounded, accepted records are saved
// byte for byte, and what is converted or stuffed and back is the same. Buffers of messages have
// their exact size, so that the sanitizer sees each byte past their ends.

#include <cstring>
#include <vector>

#include "FuzzInput.h"
#include "HexCheck.h"
#include "IntelBin.h"
#include "Path.h"
#include "RunLength.h"
#include "THexFile.h"
#include "TMidiCom.h"

static void Load(const char* path)
{
    THexFile file;
    Require(file.LoadFromFile(path) || (file.lineCount == 0 && file.maxLineLength == 0));
    Require(std::memchr(file.versionText, 0, sizeof(file.versionText)) != nullptr);
    unsigned long upper = 0;
    unsigned long sended = 0;
    for (int i = 0; i < file.lineCount; ++i) {
        Require(std::strlen(file.lines[i]) < 80);
        const bool isBase = file.GetSendedAddress(file.lines[i], &upper, &sended);
        Require(upper % 0x10000 == 0 && sended <= 0xFFFFFFFFUL && (!isBase || sended == upper));
    }
}

static void Receive(std::string records)
{
    THexFile file;
    std::string accepted;
    while (!records.empty()) {
        const std::string line = TakeLine(records) + "\r\n";
        const std::uint32_t before = file.GetNextAddress();
        const int result = file.CheckIntelHex(line.c_str());
        const std::uint32_t moved = file.GetNextAddress() - before;
        if (result <= 0)
            accepted += line.substr(0, line.find('\0'));
        // An accepted base record moves to a 64 KiB boundary, data by its count.
        Require(moved == 0 ||
                (result == 0 && (moved <= 0xFF || file.GetNextAddress() % 0x10000 == 0)));
    }
    const MemoryFile saved;
    Require(file.SaveToFile(saved.Path()) && saved.Bytes() == accepted);
}

// A hex file made from a binary one with data becomes the same binary one again.
static void Convert(const std::string& input)
{
    Require(RunLengthExpand(RunLengthCode(input), input.size()) == input);
    static_cast<void>(BinaryFromHex(input));
    const auto binary = RunLengthExpand(input, std::string::npos);
    if (binary && binary->size() > 2)
        Require(BinaryFromHex(*HexFromBinary(*binary)) == binary);
}

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
    const std::string input(data, size);
    Load(MemoryFile(input).Path());
    Receive(input);
    Convert(input);
    const std::size_t middle = input.size() / 2;
    const int number = static_cast<unsigned char>(input[0]) - 16;  // also below 0
    TakeTexts(input.substr(0, middle).c_str(), input.substr(middle).c_str(), number);
    TakeMessage(input, number & 7);
    Require(CheckHex(input).findings.size() <= HexReport::kMostFindings);
    return 0;
}
